// How a command can end: the program's exit codes, and the reasons for a command to end early. main
// turns these into one line and an exit code.

#ifndef TOOLS_DPDU_CONSOLE_FAILURE_H
#define TOOLS_DPDU_CONSOLE_FAILURE_H

#include <exception>
#include <stdexcept>
#include <string>

namespace dpdu {

// Scripts rely on these numbers. --help, the manual page and kExitCodes list them.
enum class ExitCode {
    kOk = 0,
    kFailure = 1,  // whatever has no code of its own
    kUsage = 2,
    kNoLibrary = 3,
    kNoModule = 4,
    kModuleLost = 5,
    kNegativeResponse = 6,
    kNoAnswer = 7,
    kUnmetExpectation = 8,
    kInterrupted = 130,  // as shells report SIGINT
    kReaderGone = 141,   // as shells report SIGPIPE
};

constexpr ExitCode SuccessIf(bool went_well) {
    return went_well ? ExitCode::kOk : ExitCode::kFailure;
}

// The one to end with if a command met both: a lost module explains missing answers, these count
// more than negative ones.
ExitCode MoreSerious(ExitCode one, ExitCode other);

// What the user can do next, to be appended to the reason ("; run dpdu doctor ..."); it names the
// library's log if there is one. Empty if the reason itself is all there is to say.
std::string NextStep(ExitCode code);

// False for a file that was last changed before this process began.
bool IsWrittenByThisProcess(const std::string& path);

// The library, the module or the vehicle failed.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& reason, ExitCode code = ExitCode::kFailure)
        : std::runtime_error(reason), code_(code) {}

    ExitCode Code() const { return code_; }

private:
    ExitCode code_;
};

// Whoever read the output has enough ("dpdu objects | head -1"): the program ends without a line.
class ReaderGone : public std::exception {
public:
    const char* what() const noexcept override { return "nobody reads the output"; }
};

// The caller asked for something that makes no sense.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_FAILURE_H
