// The doctor's findings: one line per check.

#ifndef TOOLS_DPDU_DOCTOR_FINDING_H
#define TOOLS_DPDU_DOCTOR_FINDING_H

#include <cstdint>
#include <string>
#include <vector>

namespace dpdu {

enum class Verdict : std::uint8_t {
    kFine,
    kNote,   // works, but worth knowing
    kWrong,  // must be corrected
};

struct Finding {
    Verdict verdict = Verdict::kFine;
    std::string subject;      // what was checked: "relay"
    std::string text;         // result of the check
    std::string advice = {};  // what to do; empty: nothing

    // The doctor's own.
    std::string id = {};   // the same for every finding of this kind, for scripts
    std::string why = {};  // what follows from it, or what may have caused it
};

using Findings = std::vector<Finding>;

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_FINDING_H
