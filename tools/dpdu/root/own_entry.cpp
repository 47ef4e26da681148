#include "root/own_entry.h"

#include <algorithm>

namespace dpdu::root {

#ifdef _WIN32
const char kLibraryFile[] = "tarvik_dpdu_x64.dll";
#else
const char kLibraryFile[] = "libtarvik_dpdu_x64.so";
#endif

namespace {

#ifdef _WIN32
constexpr char kSeparators[] = "/\\";
#else
constexpr char kSeparators[] = "/";
#endif

}  // namespace

std::string OwnShortName() {
    std::string version = DPDU_VERSION;
    std::ranges::replace(version, '.', '_');
    return "Tarvik_DPDU_API_x64_" + version;
}

Entry OwnEntry(const std::string& folder) {
    // Shells complete the name of a folder with a slash.
    const std::string path = folder.substr(0, folder.find_last_not_of(kSeparators) + 1);
    const auto uri = [&path](const char* file) { return UriOfPath(path + "/" + file); };
    return {.short_name = OwnShortName(),
            .description = "Tarvik D-PDU API for the Brennix dongle, 64 bit",
            .supplier = "Tarvik",
            .library_uri = uri(kLibraryFile),
            .module_description_uri = uri(kModuleDescriptionFile),
            .cable_description_uri = uri(kCableDescriptionFile)};
}

}  // namespace dpdu::root
