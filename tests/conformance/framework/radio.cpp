#include "conformance/framework/radio.h"

namespace conformance {
namespace {

std::string Of(int dongle, const std::string& command) {
    return "@" + std::to_string(dongle) + " " + command;
}

}  // namespace

void Radio::Reset(int count) {
    Simulator::Reset();
    for (int dongle = count; dongle < kDongles; ++dongle)
        Run(dongle, "unplug");
    Command("record clear");
}

void Radio::Set(int dongle, const std::string& settings) { Run(dongle, "radio " + settings); }

void Radio::Run(int dongle, const std::string& command) { Command(Of(dongle, command)); }

nlohmann::json Radio::State(int dongle) {
    return nlohmann::json::parse(Command(Of(dongle, "radio")));
}

int Radio::Connected() {
    int count = 0;
    for (int dongle = 0; dongle < kDongles; ++dongle)
        count += State(dongle)["connected"].get<bool>() ? 1 : 0;
    return count;
}

}  // namespace conformance
