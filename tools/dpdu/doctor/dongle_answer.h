// Does the dongle on a serial port answer and identify itself, and did it answer the library?

#ifndef TOOLS_DPDU_DOCTOR_DONGLE_ANSWER_H
#define TOOLS_DPDU_DOCTOR_DONGLE_ANSWER_H

#include <atomic>
#include <cstdint>
#include <string>

#include "doctor/finding.h"
#include "link/packet.h"
#include "transport/serial/port_discovery.h"

namespace dpdu {

struct DongleAnswer {
    enum class Step : std::uint8_t { kNotOpened, kSilent, kNoLogin, kLoggedIn };

    Step step = Step::kNotOpened;  // the last one that it reached
    int error = 0;                 // kNotOpened: the system's
    tarvik::LoginRecord login{};   // kLoggedIn
};

// Opens the port, sends SYNC and then IDEN as the library does, but each for longer: two seconds
// and one. Ends soon when *stop is set.
DongleAnswer AskDongle(const char* path, const std::atomic<bool>& stop);

// What keeps the library from opening a port that is not ready.
Finding UnreadyFinding(const tarvik::ListedPort& port);

// The newest debug log of the library that mentions the port, if the last that it says is that
// nothing answered there; empty: none. The library leaves such a port alone until it disappears.
std::string LogOfSilence(std::int32_t port_number);

// `log`: as returned by LogOfSilence.
Finding AnswerFinding(const std::string& path, const DongleAnswer& answer, const std::string& log);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_DONGLE_ANSWER_H
