// brennix-bluez -- COMMAND...: runs a command on a private message bus that has org.bluez, with the
// dongles of brennix-radio in reach. BRENNIX_RADIO names the radio's port.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "bluez/bluez_run.h"

int main(int argc, char** argv) {
    if (argc < 3 || std::strcmp(argv[1], "--") != 0) {
        std::fprintf(stderr, "brennix-bluez: expected -- and a command\n");
        return 1;
    }
    const char* const radio = std::getenv("BRENNIX_RADIO");
    const long port = radio != nullptr ? std::strtol(radio, nullptr, 10) : 0;
    if (port < 1 || port > 65535) {
        std::fprintf(stderr,
                     "brennix-bluez: BRENNIX_RADIO names no port; run beside brennix-radio\n");
        return 1;
    }
    try {
        return brennix::BluezRun(static_cast<std::uint16_t>(port)).Run({argv + 2, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brennix-bluez: %s\n", error.what());
        return 1;
    }
}
