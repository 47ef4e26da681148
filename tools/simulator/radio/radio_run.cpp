#include "radio/radio_run.h"

#include <cstdio>

#include "process/ready_file.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix {

RadioRun::RadioRun(const RadioOptions& options) : options_(options), radio_(&loop_, options.keep) {
    if (!options_.record_file.empty()) radio_.Dongles().Log().OpenFile(options_.record_file);
    AddDongles();
    radio_.Listen(options_.port);
    control_ = std::make_unique<ControlServer>(
        &loop_, &radio_.Dongles().Log(),
        [this](std::string_view line) { return commands_.Run(line); }, options_.control_port);
}

RadioRun::~RadioRun() { radio_.Dongles().Log().FlushFile(); }

void RadioRun::AddDongles() {
    for (std::size_t i = 0; i < options_.DongleCount(); ++i) {
        const std::size_t dongle =
            radio_.AddDongle(LoadVehicleFile(options_.vehicles[options_.VehicleOf(i)]));
        if (options_.unplugged) radio_.Dongles().Unplug(dongle, Part::kAll);
    }
}

std::map<std::string, std::string> RadioRun::Places() const {
    return {{"BRENNIX_RADIO", std::to_string(radio_.Port())},
            {"BRENNIX_SIM_CONTROL", control_->Address()}};
}

void RadioRun::Announce() const {
    if (!options_.ready_file.empty()) WriteReadyFile(options_.ready_file, PlacesText(Places()));
    if (!options_.command.empty()) return;
    std::printf("%s", PlacesText(Places()).c_str());
    std::fflush(stdout);
}

int RadioRun::Run() {
    Announce();
    const int code = program_.Run(options_.command, Places());
    if (code != 0) return code;
    return options_.strict && radio_.Dongles().Violations() != 0 ? kViolationExitCode : 0;
}

}  // namespace brennix
