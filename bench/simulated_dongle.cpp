#include "simulated_dongle.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace tarvik::bench {
namespace {

// A dongle of the simulator with this process id.
std::string PortOf(pid_t simulator, int dongle) {
    return "/tmp/tarvik-bench-" + std::to_string(simulator) + "." + std::to_string(dongle);
}

// Runs the simulator in this process; the arguments follow.
[[noreturn]] void Become(std::vector<const char*> command, char** argv) {
    const char* const program = command.front();
    for (char** argument = argv; *argument != nullptr; ++argument)
        command.push_back(*argument);
    command.push_back(nullptr);
    ::execv(program, const_cast<char**>(command.data()));
    std::perror(program);
    std::exit(1);
}

std::string VehicleFile(const std::string& vehicle) {
    return std::string(TARVIK_BENCH_VEHICLES) + "/" + vehicle + ".json";
}

}  // namespace

void RunUnderSimulator(char** argv, const std::string& vehicle) {
    if (std::getenv("BRENNIX_SIM_PORTS") != nullptr) return;
    const std::string file = VehicleFile(vehicle);
    // Names are assigned to the dongles in turn, so the first has both kinds.
    const std::string first = PortOf(::getpid(), 0);  // exec keeps the process id
    const std::string second = PortOf(::getpid(), 1);
    Become({TARVIK_BENCH_SIMULATOR, "--vehicle", file.c_str(), "--dongles", "2", "--usb", "ttyACM0",
            "--link", first.c_str(), "--link", second.c_str(), "--"},
           argv);
}

void RunUnderRadio(char** argv) {
    if (std::getenv("BRENNIX_RADIO") != nullptr) return;
    const std::string file = VehicleFile("demo");
    Become({TARVIK_BENCH_RADIO, "--vehicle", file.c_str(), "--dongles", "2", "--",
            TARVIK_BENCH_BLUEZ, "--"},
           argv);
}

std::string HiddenPort() { return PortOf(::getppid(), 1); }

}  // namespace tarvik::bench
