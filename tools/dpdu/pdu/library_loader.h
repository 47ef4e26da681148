// Loads a shared library by path at run time; one implementation per operating system.

#ifndef TOOLS_DPDU_PDU_LIBRARY_LOADER_H
#define TOOLS_DPDU_PDU_LIBRARY_LOADER_H

#include <string>

namespace dpdu {

struct LoadedLibrary {
    void* handle = nullptr;  // null: not loaded
    std::string error;       // why, in the system's words, without a line end
};

// The library stays loaded until the process ends: its own threads may still be running after its
// last function has returned.
LoadedLibrary LoadSharedLibrary(const std::string& path);

// The address of an exported function, or null.
void* FindFunction(void* library, const char* name);

// Path of this project's library: beside the program, or where it is installed with the program.
std::string DefaultLibraryPath();

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_LIBRARY_LOADER_H
