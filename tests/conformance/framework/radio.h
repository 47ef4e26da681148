#pragma once

// The dongles in Bluetooth range of this program, through the control channel of their radio.

#include <string>

#include "conformance/framework/simulator.h"

namespace conformance {

// "@N " before a command addresses dongle N; without it, dongle 0.
class Radio : public Simulator {
public:
    static constexpr int kDongles = 9;  // of the launcher
    static constexpr const char* kSerialNumbers[kDongles] = {
        "02:42:52:4E:58:01", "02:42:52:4E:58:02", "02:42:52:4E:58:03",
        "02:42:52:4E:58:04", "02:42:52:4E:58:05", "02:42:52:4E:58:06",
        "02:42:52:4E:58:07", "02:42:52:4E:58:08", "02:42:52:4E:58:09"};

    // The initial state, with only the first `count` dongles in range and an empty record.
    void Reset(int count = 1);
    // Settings of a dongle on the air, as a JSON object.
    void Set(int dongle, const std::string& settings);
    void Run(int dongle, const std::string& command);
    nlohmann::json State(int dongle = 0);
    // How many dongles are connected.
    int Connected();
};

}  // namespace conformance
