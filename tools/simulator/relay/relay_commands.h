// The commands of the relay's control channel. Other commands go to its dongles.

#pragma once

#include <string>
#include <string_view>

#include "control/commands.h"
#include "control/record_commands.h"
#include "relay/relay.h"

namespace brennix {

class RelayCommands {
public:
    explicit RelayCommands(Relay* relay) : relay_(relay), dongles_(&relay->Dongles()) {}

    CommandResult Run(std::string_view line);
    static std::string Help();

private:
    Relay* relay_;
    Commands dongles_;
};

}  // namespace brennix
