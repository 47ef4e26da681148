#include "program/run.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "process/ready_file.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix {

namespace {

// A common USB serial converter, often connected beside a dongle.
const UsbIdentity kForeignIdentity = {"10c4", "ea60", "0001"};
constexpr const char* kForeignHardwareId = "USB\\VID_10C4&PID_EA60&REV_0100";

std::string ProgramFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

// The libraries that other programs preload are beside the program, or where they are installed.
std::string PreloadFolder() {
    const std::string folder = ProgramFolder();
    const bool is_beside = ::access((folder + "/libbrennix_mocked_ports.so").c_str(), R_OK) == 0;
    return is_beside ? folder : folder + "/" BRENNIX_INSTALLED_PRELOADS;
}

std::string FindWineHelper(const Options& options) {
    if (!options.wine_helper.empty()) return options.wine_helper;
    const std::string folder = ProgramFolder();
    for (const std::string& path :
         {folder + "/wine_port.exe", folder + "/../windows-release/wine_port.exe"}) {
        if (::access(path.c_str(), R_OK) == 0) return path;
    }
    throw std::runtime_error("wine_port.exe is not beside the program, give --wine-helper");
}

std::string WinePrefix() {
    if (const char* prefix = std::getenv("WINEPREFIX"); prefix != nullptr && *prefix != '\0') {
        return prefix;
    }
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.wine";
}

std::string SerialNumber(const Identity& identity) { return ToHex(identity.mac); }

}  // namespace

SimulatorRun::SimulatorRun(const Options& options)
    : options_(options), simulator_(&loop_, options.keep) {
    if (!options_.record_file.empty()) simulator_.Log().OpenFile(options_.record_file);
    AddDongles();
    AddForeignPorts();
    AddListings();
    control_ = std::make_unique<ControlServer>(
        &loop_, &simulator_.Log(), [this](std::string_view line) { return commands_.Run(line); },
        options_.control_port);
    PrepareScratch();
}

SimulatorRun::~SimulatorRun() { simulator_.Log().FlushFile(); }

// Dongles from the same file get different addresses.
void SimulatorRun::AddDongles() {
    const std::shared_ptr<const Recording> recording = LoadTraces();
    const std::size_t count = std::max<std::size_t>(options_.DongleCount(), 1);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t file = options_.VehicleOf(i);
        DongleSetup setup;
        if (!options_.vehicles.empty()) setup = LoadVehicleFile(options_.vehicles[file]);
        setup.identity.mac[5] = static_cast<std::uint8_t>(setup.identity.mac[5] + (i - file));
        if (recording) PutRecordingBehind(&setup, recording);
        simulator_.AddDongle(std::move(setup));
    }
}

std::shared_ptr<const Recording> SimulatorRun::LoadTraces() const {
    if (options_.traces.empty()) return nullptr;
    auto all = std::make_shared<Recording>();
    for (Recording& recording : LoadRecordings(options_.traces, options_.replay)) {
        std::fprintf(stderr, "brennix-sim: %s: %s\n", recording.path.c_str(),
                     recording.Summary().c_str());
        all->Append(std::move(recording));
    }
    return all;
}

// The trace replaces the vehicle.
void SimulatorRun::PutRecordingBehind(DongleSetup* setup,
                                      std::shared_ptr<const Recording> recording) const {
    setup->control_units.clear();
    setup->raw = {};
    setup->raw.sequence = recording->frames;
    setup->timeline = {};
    setup->timeline.events = recording->telemetry;
    setup->recording = std::move(recording);
    setup->strict_replay = options_.strict;
}

void SimulatorRun::AddForeignPorts() {
    for (const std::string& name : options_.foreign_ports) {
        DongleSetup setup;
        setup.mute = true;
        const std::size_t index = simulator_.AddDongle(std::move(setup));
        if (UsbMock::IsNodeName(name)) {
            AddUsbPort(index, name, kForeignIdentity);
        } else {
            AddWinePort(index, name, kForeignHardwareId);
        }
    }
}

void SimulatorRun::AddListings() {
    for (std::size_t i = 0; i < options_.links.size(); ++i) {
        simulator_.AddListing(i, std::make_unique<LinkListing>(options_.links[i]));
        simulator_.SetPortName(i, options_.links[i]);
    }
    for (std::size_t i = 0; i < options_.usb_ports.size(); ++i) {
        UsbIdentity identity;
        identity.serial = SerialNumber(simulator_.At(i).Setup().identity);
        AddUsbPort(i, options_.usb_ports[i], std::move(identity));
    }
    for (std::size_t i = 0; i < options_.wine_ports.size(); ++i) {
        AddWinePort(i, options_.wine_ports[i], "");
    }
}

void SimulatorRun::AddUsbPort(std::size_t dongle, const std::string& name, UsbIdentity identity) {
    if (!usb_) usb_ = std::make_unique<UsbMock>("/proc/self/exe", PreloadFolder());
    simulator_.AddListing(dongle, usb_->AddPort(name, std::move(identity)));
    simulator_.SetPortName(dongle, name);
}

void SimulatorRun::AddWinePort(std::size_t dongle, const std::string& name,
                               const std::string& hardware_id) {
    if (!wine_) wine_ = std::make_unique<WinePorts>(WinePrefix(), FindWineHelper(options_));
    simulator_.AddListing(dongle, wine_->AddPort(name, hardware_id));
    simulator_.SetPortName(dongle, name);
}

void SimulatorRun::PlugAll() {
    for (std::size_t i = 0; i < simulator_.Count(); ++i)
        simulator_.Plug(i, Part::kAll);
}

std::string SimulatorRun::ReadyText() const {
    auto& simulator = const_cast<Simulator&>(simulator_);
    std::string text = "control " + control_->Address() + "\n";
    for (std::size_t i = 0; i < simulator.Count(); ++i) {
        text += "dongle " + std::to_string(i) + " " +
                (simulator.At(i).IsPowered() ? simulator.At(i).Port().SlavePath() : "unplugged");
        if (!simulator.PortName(i).empty()) text += " " + simulator.PortName(i);
        text += "\n";
    }
    return text;
}

// Prints nothing beside a command, whose output stays unmixed.
void SimulatorRun::Announce() const {
    if (!options_.ready_file.empty()) WriteReadyFile(options_.ready_file, ReadyText());
    if (!options_.command.empty()) return;
    std::string text = ReadyText();
    if (usb_) {
        text += "programs see the USB ports with this environment:\n";
        for (const auto& [name, value] : usb_->Environment())
            text += "  " + name + "=" + value + "\n";
    }
    std::printf("%s", text.c_str());
    std::fflush(stdout);
}

void SimulatorRun::PrepareScratch() {
    if (options_.scratch.empty()) return;
    const std::filesystem::path folder = std::filesystem::absolute(options_.scratch);
    std::filesystem::create_directories(folder / "config");
    std::filesystem::create_directories(folder / "tmp");
    if (wine_) wine_->UseFolders((folder / "config").string(), (folder / "tmp").string());
}

std::map<std::string, std::string> SimulatorRun::CommandEnvironment() const {
    std::map<std::string, std::string> environment;
    if (usb_) environment = usb_->Environment();
    if (!options_.scratch.empty()) {
        const std::string folder = std::filesystem::absolute(options_.scratch).string();
        environment["BRENNIX_SIM_SCRATCH"] = wine_ ? WindowsPath(folder) : folder;
        environment["XDG_CONFIG_HOME"] = folder + "/config";
        environment["TMPDIR"] = folder + "/tmp";
    }
    if (wine_) {
        environment.merge(wine_->Environment(PreloadFolder() + "/libbrennix_serial_lines.so"));
        environment["TMPDIR"].clear();
        environment["XDG_CONFIG_HOME"].clear();
    }
    std::string names;
    for (std::size_t i = 0; i < simulator_.Count(); ++i) {
        names += (i == 0 ? "" : ",") + simulator_.PortName(i);
    }
    environment["BRENNIX_SIM_PORTS"] = names;
    environment["BRENNIX_SIM_CONTROL"] = control_->Address();
    return environment;
}

int SimulatorRun::Run() {
    if (!options_.unplugged) PlugAll();
    Announce();
    const int code = program_.Run(options_.command, CommandEnvironment());
    // A command that fails because of a violation would hide it.
    return options_.strict && simulator_.Violations() != 0 ? kViolationExitCode : code;
}

}  // namespace brennix
