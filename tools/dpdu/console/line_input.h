// Lines that the user types at a prompt; one implementation per operating system.

#ifndef TOOLS_DPDU_CONSOLE_LINE_INPUT_H
#define TOOLS_DPDU_CONSOLE_LINE_INPUT_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace dpdu {

class LineInput {
public:
    // What may replace the last word of the text before the cursor.
    using Complete = std::function<std::vector<std::string>(const std::string& before)>;

    // On Linux with editing, completion and a history that is kept in a file, if libedit is
    // installed. On Windows the console edits and remembers lines, without completion.
    explicit LineInput(Complete complete);
    ~LineInput();
    LineInput(const LineInput&) = delete;
    LineInput& operator=(const LineInput&) = delete;

    // Shows the prompt on standard error and waits for a line, which is returned without its end.
    // nullopt: the input has ended, or the user has interrupted the program.
    std::optional<std::string> Read(const std::string& prompt);

private:
    struct System;
    std::unique_ptr<System> system_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_LINE_INPUT_H
