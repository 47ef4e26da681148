#pragma once

// The simulated dongle of this program, through its control channel.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "conformance/framework/system.h"

namespace conformance {

class Simulator {
public:
    // Connects with the first command. Each instance has its own connection.
    Simulator() : Simulator("BRENNIX_SIM_CONTROL") {}

    // True if the program was started with a simulated dongle.
    static bool IsThere();

    // Sends one command line and returns the answer's text after "ok". Any other answer fails the
    // test and returns an empty text.
    std::string Command(const std::string& line);

    void Unplug() { Command("unplug"); }
    void Replug() { Command("replug"); }
    // The state of the vehicle file, plugged in, with an empty record.
    void Reset();

    // The next request stays in flight until AnswerRequest.
    void HoldNextRequest() { Command(R"(next 1 {"lost": true})"); }
    // Answers a request to one control unit, instead of the dongle.
    void AnswerRequest(std::uint32_t request_id, const std::vector<std::uint8_t>& data);

    // Recorded packets and events since Reset; the filter in the simulator's notation: "in CREQ".
    std::uint64_t Count(const std::string& filter);
    // Waits until that many are recorded; false: they did not come in time.
    bool WaitFor(std::uint64_t count, const std::string& filter);
    // The newest entries, the oldest of them first.
    nlohmann::json Last(std::uint64_t count, const std::string& filter);
    // The fields of the newest request; empty if there is none.
    nlohmann::json LastRequest();
    // How often the library broke a rule that the dongle checks, and the last such violation.
    std::uint64_t Violations();

protected:
    // `variable` holds the address of the control channel.
    explicit Simulator(const char* variable) : variable_(variable) {}

private:
    bool Connect();
    bool ReadLine(std::string* line);

    const char* variable_;
    Connection connection_;
    std::string received_;
};

}  // namespace conformance
