// brennix-radio: simulated dongles reached over Bluetooth LE.

#include <cstdio>
#include <exception>

#include "radio/radio_options.h"
#include "radio/radio_run.h"

int main(int argc, char** argv) {
    int exit_code = 0;
    const std::optional<brennix::RadioOptions> options =
        brennix::ReadRadioOptions(argc, argv, &exit_code);
    if (!options) return exit_code;
    try {
        return brennix::RadioRun(*options).Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brennix-radio: %s\n", error.what());
        return 1;
    }
}
