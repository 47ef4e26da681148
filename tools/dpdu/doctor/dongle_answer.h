// Does the dongle on a serial port answer, and did it answer the library?

#ifndef TOOLS_DPDU_DOCTOR_DONGLE_ANSWER_H
#define TOOLS_DPDU_DOCTOR_DONGLE_ANSWER_H

#include <cstdint>
#include <string>

#include "doctor/finding.h"

namespace dpdu {

enum class DongleAnswer : std::uint8_t { kAnswers, kSilent, kNotOpened };

// Opens the port and sends SYNC as the library does, but for two seconds instead of 300 ms.
DongleAnswer AskDongle(const char* path);

// The newest debug log of the library that mentions the port, if the last that it says is that
// nothing answered there; empty: none. The library leaves such a port alone until it disappears.
std::string LogOfSilence(std::int32_t port_number);

// `log`: as returned by LogOfSilence.
Finding AnswerFinding(const std::string& path, DongleAnswer answer, const std::string& log);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_DONGLE_ANSWER_H
