#include "car_run.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include "conformance/framework/simulator.h"

namespace {

namespace fs = std::filesystem;

// The library ignores a port on which nothing answered in time until it is plugged in again. So it
// is, if its port has not been open or opened for a while.
void ReplugWhenLeftAlone(conformance::Gate* ended) {
    constexpr std::chrono::seconds kAlone{4};
    constexpr std::chrono::milliseconds kPulledOut{500};
    conformance::Simulator simulator;
    int opens = -1;
    while (!ended->Wait(kAlone)) {
        const Json state = Json::parse(simulator.Command("@0 stats")).at(0);
        const int opens_before = std::exchange(opens, state.at("opens").get<int>());
        if (state.at("host").get<bool>() || opens != opens_before) continue;
        simulator.Unplug();
        ended->Wait(kPulledOut);
        simulator.Replug();
    }
}

}  // namespace

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

void ConfigureLibrary() {
    const fs::path folder =
        fs::path(Environment("BRENNIX_SIM_SCRATCH")) / "config" / "Tarvik" / "Brennix";
    fs::create_directories(folder);
    std::ofstream(folder / "config.json")
        << R"({"showDebug": false, "useSerial": true, "useCloud": false, "useBle": false,)"
        << R"( "dummyDevice": false})";
}

ClientSetup CarSetup(std::vector<std::string> arguments) {
    ClientSetup setup;
    setup.arguments = std::move(arguments);
    setup.arguments.insert(setup.arguments.end(), {"--wait", "30"});
    setup.library = Environment("TARVIK_DPDU_LIBRARY");
    return setup;
}

DongleKeeper::DongleKeeper()
    : thread_(std::make_unique<conformance::Thread>([this] { ReplugWhenLeftAlone(&ended_); })) {}

void DongleKeeper::Stop() {
    ended_.Open();
    thread_.reset();
}

ClientResult RunWithCar(const ClientSetup& setup) {
    const DongleKeeper keeper;
    return RunClient(setup);
}

ClientResult RunWithCar(const std::vector<std::string>& arguments) {
    return RunWithCar(CarSetup(arguments));
}
