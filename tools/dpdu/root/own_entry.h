// The entry of this project's library.

#ifndef TOOLS_DPDU_ROOT_OWN_ENTRY_H
#define TOOLS_DPDU_ROOT_OWN_ENTRY_H

#include <string>

#include "root/entry.h"

namespace dpdu::root {

// Names of the installed files, all in one folder.
extern const char kLibraryFile[];  // tarvik_dpdu_x64.dll, libtarvik_dpdu_x64.so
inline constexpr char kModuleDescriptionFile[] = "tarvik_mdf.xml";
inline constexpr char kCableDescriptionFile[] = "tarvik_cdf.xml";

// Tarvik_DPDU_API_x64_0_1_0
std::string OwnShortName();
// `folder` has the library and its description files. Throws Failure as UriOfPath does.
Entry OwnEntry(const std::string& folder);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_OWN_ENTRY_H
