// What the doctor finds: one line for each thing that it looked at.

#ifndef TOOLS_DPDU_DOCTOR_FINDING_H
#define TOOLS_DPDU_DOCTOR_FINDING_H

#include <cstdint>
#include <string>
#include <vector>

namespace dpdu {

enum class Verdict : std::uint8_t {
    kFine,
    kNote,   // works, but someone may want to know
    kWrong,  // has to be put right
};

struct Finding {
    Verdict verdict = Verdict::kFine;
    std::string subject;      // what was looked at: "relay"
    std::string text;         // what is the case
    std::string advice = {};  // what to do; empty: nothing
};

using Findings = std::vector<Finding>;

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_FINDING_H
