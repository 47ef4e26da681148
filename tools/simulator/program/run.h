// One run of brennix-sim: sets everything up, runs the command, cleans up.

#pragma once

#include <memory>
#include <string>

#include "control/commands.h"
#include "control/control_server.h"
#include "dongle/simulator.h"
#include "ports/usb_mock.h"
#include "process/command_run.h"
#include "process/event_loop.h"
#include "program/options.h"
#include "wine/wine_ports.h"

namespace brennix {

class SimulatorRun {
public:
    // Throws std::exception; the message is one line.
    explicit SimulatorRun(const Options& options);
    ~SimulatorRun();
    SimulatorRun(const SimulatorRun&) = delete;
    SimulatorRun& operator=(const SimulatorRun&) = delete;

    int Run();  // returns the exit code

private:
    void AddDongles();
    std::shared_ptr<const Recording> LoadTraces() const;
    void PutRecordingBehind(DongleSetup* setup, std::shared_ptr<const Recording> recording) const;
    void AddForeignPorts();
    void AddListings();
    void AddUsbPort(std::size_t dongle, const std::string& name, UsbIdentity identity);
    void AddWinePort(std::size_t dongle, const std::string& name, const std::string& hardware_id);
    void PlugAll();
    void Announce() const;
    void PrepareScratch();
    std::string ReadyText() const;
    std::map<std::string, std::string> CommandEnvironment() const;

    const Options options_;
    EventLoop loop_;
    CommandRun program_{&loop_};
    // Declared before the simulator, whose listings refer to them.
    std::unique_ptr<UsbMock> usb_;
    std::unique_ptr<WinePorts> wine_;
    Simulator simulator_;
    Commands commands_{&simulator_};
    std::unique_ptr<ControlServer> control_;
};

}  // namespace brennix
