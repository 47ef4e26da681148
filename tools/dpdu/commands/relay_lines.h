// What this project's library prints of its connection to the relay: it reports that nowhere else.

#ifndef TOOLS_DPDU_COMMANDS_RELAY_LINES_H
#define TOOLS_DPDU_COMMANDS_RELAY_LINES_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dpdu {

// What a line of the library says of the connection; empty for any other line.
std::string RelayNews(std::string_view line);

// Reads the lines that are printed on standard output, from its construction to the end of the
// program.
class RelayLines {
public:
    // `is_forwarding`: also shows them on standard error. Before the library is loaded: one with a
    // C runtime of its own may print where it has found its output then.
    explicit RelayLines(bool is_forwarding);

    // The news since the last call, the oldest first.
    std::vector<std::string> Take();

private:
    struct Shared;
    const std::shared_ptr<Shared> shared_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_RELAY_LINES_H
