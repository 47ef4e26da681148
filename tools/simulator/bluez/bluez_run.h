// One run of brennix-bluez: a private bus, the service on it, a command beside them.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bluez/bluez.h"
#include "bluez/private_bus.h"
#include "control/control_server.h"
#include "process/command_run.h"
#include "record/record.h"

namespace brennix {

class BluezRun {
public:
    // `radio`: the port of brennix-radio. Throws std::exception; the message is one line.
    explicit BluezRun(std::uint16_t radio);

    int Run(const std::vector<std::string>& command);  // returns the exit code

private:
    CommandResult Obey(std::string_view line);
    // The bus learns of a program's end slightly later.
    void AwaitClientsEnd();

    EventLoop loop_;
    CommandRun program_{&loop_};
    PrivateBus daemon_;
    Bluez bluez_;
    Record record_{0};
    ControlServer control_;
};

}  // namespace brennix
