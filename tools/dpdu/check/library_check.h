// Checks an installed library, and what its module description says of it.

#ifndef TOOLS_DPDU_CHECK_LIBRARY_CHECK_H
#define TOOLS_DPDU_CHECK_LIBRARY_CHECK_H

#include <chrono>
#include <optional>
#include <string>

#include "check/module_description.h"
#include "doctor/finding.h"

namespace dpdu::check {

struct LibraryCheck {
    std::string path;
    std::string short_name;                              // of its entry
    std::optional<std::uint32_t> root_standard_version;  // packed; that of the root file
    const ModuleDescription* description = nullptr;      // null: it has none that can be read
    std::chrono::milliseconds wait{0};                   // how long to look for a module
    std::chrono::milliseconds limit{0};                  // for each call of the library
    bool is_verbose = false;
};

void CheckLibrary(const LibraryCheck& check, Findings* findings);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_LIBRARY_CHECK_H
