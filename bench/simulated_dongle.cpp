#include "simulated_dongle.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace tarvik::bench {

void RunUnderSimulator(char** argv) {
    if (std::getenv("BRENNIX_SIM_PORTS") != nullptr) return;
    std::vector<const char*> command = {
        TARVIK_BENCH_SIMULATOR, "--vehicle", TARVIK_BENCH_VEHICLE, "--usb", "ttyACM0", "--"};
    for (char** argument = argv; *argument != nullptr; ++argument)
        command.push_back(*argument);
    command.push_back(nullptr);
    ::execv(TARVIK_BENCH_SIMULATOR, const_cast<char**>(command.data()));
    std::perror(TARVIK_BENCH_SIMULATOR);
    std::exit(1);
}

}  // namespace tarvik::bench
