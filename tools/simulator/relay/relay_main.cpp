// brennix-relay: a relay for development, with simulated dongles behind it.

#include <cstdio>
#include <exception>

#include "relay/relay_options.h"
#include "relay/relay_run.h"

int main(int argc, char** argv) {
    int exit_code = 0;
    const std::optional<brennix::RelayOptions> options =
        brennix::ReadRelayOptions(argc, argv, &exit_code);
    if (!options) return exit_code;
    try {
        if (options->keygen) {
            brennix::PrintKeys(*options);
            return 0;
        }
        return brennix::RelayRun(*options).Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brennix-relay: %s\n", error.what());
        return 1;
    }
}
