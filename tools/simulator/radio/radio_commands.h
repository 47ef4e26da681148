// The commands of the radio's control channel. Other commands go to its dongles.

#pragma once

#include <string>
#include <string_view>

#include "control/commands.h"
#include "radio/radio.h"

namespace brennix {

class RadioCommands {
public:
    explicit RadioCommands(Radio* radio) : radio_(radio), dongles_(&radio->Dongles()) {}

    CommandResult Run(std::string_view line);
    static std::string Help();

private:
    Radio* radio_;
    Commands dongles_;
};

}  // namespace brennix
