// The two reasons for a command to end early. main turns them into one line and an exit code.

#ifndef TOOLS_DPDU_CONSOLE_FAILURE_H
#define TOOLS_DPDU_CONSOLE_FAILURE_H

#include <stdexcept>

namespace dpdu {

// Exit codes, as --help lists them.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// The library, the module or the vehicle failed.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The caller asked for something that makes no sense.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_FAILURE_H
