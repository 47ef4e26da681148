// One run of brennix-relay: sets everything up, runs the command, cleans up.

#pragma once

#include <map>
#include <memory>
#include <string>

#include "control/control_server.h"
#include "process/command_run.h"
#include "relay/relay.h"
#include "relay/relay_commands.h"
#include "relay/relay_options.h"

namespace brennix {

class RelayRun {
public:
    // Throws std::exception; the message is one line.
    explicit RelayRun(const RelayOptions& options);
    ~RelayRun();
    RelayRun(const RelayRun&) = delete;
    RelayRun& operator=(const RelayRun&) = delete;

    int Run();  // returns the exit code
    // The variables that the command gets.
    std::map<std::string, std::string> Places() const;

private:
    void OpenPorts();
    void AddDongles();
    void Announce();
    void Print(const std::string& line);
    void ShowCounts();

    const RelayOptions options_;
    EventLoop loop_;
    CommandRun program_{&loop_};
    const bool prints_;
    const bool shows_counts_;  // a last line that is rewritten every second
    std::unique_ptr<Relay> relay_;
    std::unique_ptr<RelayCommands> commands_;
    std::unique_ptr<ControlServer> control_;
};

// "keygen": prints the key pair and the lines for the library's config.json.
void PrintKeys(const RelayOptions& options);

}  // namespace brennix
