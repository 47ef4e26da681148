#include "console/failure.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <optional>

#include "console/terminal.h"
#include "text/names.h"

namespace dpdu {
namespace {

// From harmless to serious.
constexpr ExitCode kBySeriousness[] = {
    ExitCode::kOk,          ExitCode::kNegativeResponse, ExitCode::kUnmetExpectation,
    ExitCode::kNoAnswer,    ExitCode::kFailure,          ExitCode::kUsage,
    ExitCode::kNoModule,    ExitCode::kModuleLost,       ExitCode::kNoLibrary,
    ExitCode::kInterrupted, ExitCode::kReaderGone,
};

const ExitCode* PlaceOf(ExitCode code) {
    return std::find(std::begin(kBySeriousness), std::end(kBySeriousness), code);
}

const auto process_start = std::chrono::system_clock::now().time_since_epoch();

// File systems take their times from a clock that may lag a little.
constexpr std::chrono::milliseconds kClockLag{100};

}  // namespace

bool IsWrittenByThisProcess(const std::string& path) {
    const std::optional<std::uint64_t> changed_us = ChangedUs(path);
    if (!changed_us) return false;
    const std::chrono::microseconds changed(static_cast<std::int64_t>(*changed_us));
    return changed >= process_start - kClockLag;
}

namespace {

// "; the library's log is PATH" if this process's library writes one. An earlier process may have
// had the same number.
std::string LogHint() {
    const std::string log = TextOf(PathOf(TemporaryFolder()) /
                                   ("dpdu_debug_" + std::to_string(OwnProcessId()) + ".log"));
    return IsWrittenByThisProcess(log) ? "; the library's log is " + log : "";
}

}  // namespace

ExitCode MoreSerious(ExitCode one, ExitCode other) {
    return PlaceOf(one) < PlaceOf(other) ? other : one;
}

std::string NextStep(ExitCode code) {
    switch (code) {
        case ExitCode::kFailure:
            return LogHint();
        case ExitCode::kNoModule:
            return "; dpdu doctor finds out why" + LogHint();
        case ExitCode::kModuleLost:
            return "; check its plug or connection and try again, dpdu doctor helps" + LogHint();
        case ExitCode::kNoAnswer:
            return "; check ignition and address, dpdu scan lists control units" + LogHint();
        case ExitCode::kOk:
        case ExitCode::kUsage:             // its lines name --help
        case ExitCode::kNoLibrary:         // its lines name the options
        case ExitCode::kNegativeResponse:  // the code says why
        case ExitCode::kUnmetExpectation:
        case ExitCode::kInterrupted:
        case ExitCode::kReaderGone:
            return "";
    }
    return "";
}

}  // namespace dpdu
