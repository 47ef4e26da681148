// Reads and checks a module description file.

#ifndef TOOLS_DPDU_CHECK_MODULE_DESCRIPTION_H
#define TOOLS_DPDU_CHECK_MODULE_DESCRIPTION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "check/library_answers.h"
#include "doctor/finding.h"

namespace dpdu::check {

// An object whose id the library also knows.
struct DescribedObject {
    std::string place;  // "line 12: COMPARAM CP_P2Max"
    ObjectKey key;
    std::uint32_t id = 0;
    ComParamKind kind;  // of a ComParam; 0: unknown
};

struct ModuleDescription {
    std::vector<DescribedObject> objects;  // those with a name and an id
    std::vector<LinkNames> links;          // of the resources
    std::vector<std::uint32_t> module_types;
    std::optional<std::uint32_t> standard_version;  // packed
};

// Nothing, with a finding: the file cannot be read.
std::optional<ModuleDescription> CheckModuleDescription(const std::string& path,
                                                        Findings* findings);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_MODULE_DESCRIPTION_H
