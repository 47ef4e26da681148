#pragma once

// The simulated dongle that this program was started with, through its control channel.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "conformance/framework/system.h"

namespace conformance {

class Simulator {
public:
    // Connects at the first command. Each instance has a connection of its own.
    Simulator() : Simulator("BRENNIX_SIM_CONTROL") {}

    // True when the program was started with a simulated dongle.
    static bool IsThere();

    // Sends one command line and returns what the answer says behind "ok". Any other answer fails
    // the test, and gives an empty text.
    std::string Command(const std::string& line);

    void Unplug() { Command("unplug"); }
    void Replug() { Command("replug"); }
    // As the vehicle file has it, plugged in, with an empty record.
    void Reset();

    // The next request stays in flight until AnswerRequest.
    void HoldNextRequest() { Command(R"(next 1 {"lost": true})"); }
    // The answer to a request for one control unit, in the dongle's place.
    void AnswerRequest(std::uint32_t request_id, const std::vector<std::uint8_t>& data);

    // Packets and events on record since Reset; FILTER as the simulator reads it: "in CREQ".
    std::uint64_t Count(const std::string& filter);
    // Waits until that many are on record; false: they did not come.
    bool WaitFor(std::uint64_t count, const std::string& filter);
    // The newest entries, oldest first.
    nlohmann::json Last(std::uint64_t count, const std::string& filter);
    // The fields of the newest request; empty without one.
    nlohmann::json LastRequest();
    // What the library did wrong in the dongle's eyes, and the last such thing.
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
