// Where a library is; one implementation per operating system.

#ifndef TOOLS_DPDU_PDU_LIBRARY_PATH_H
#define TOOLS_DPDU_PDU_LIBRARY_PATH_H

#include <string>

namespace dpdu {

// The path to load for one that a user gave: a bare file name means the file in the current folder,
// if there is one.
std::string PathToLoad(const std::string& path);

// Path of this project's library: beside the program, or where it is installed with the program.
std::string DefaultLibraryPath();

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_LIBRARY_PATH_H
