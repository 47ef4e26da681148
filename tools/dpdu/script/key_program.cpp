#include "script/key_program.h"

#include <algorithm>

#include "check/child_process.h"
#include "console/interruption.h"
#include "console/output.h"

namespace dpdu::script {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPoll{100};  // for interruptions
constexpr std::size_t kMostOutput = 65536;

class TimeLeft {
public:
    explicit TimeLeft(std::chrono::milliseconds limit) : end_(Clock::now() + limit) {}
    bool IsOver() const { return Clock::now() >= end_; }
    std::chrono::milliseconds Share() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return std::clamp(left, std::chrono::milliseconds(0), kPoll);
    }

private:
    Clock::time_point end_;
};

[[noreturn]] void Refuse(const std::string& program, const std::string& reason) {
    throw Failure("the key program '" + program + "' " + reason);
}

}  // namespace

Bytes KeyOf(const Bytes& seed, const std::string& program,
            const std::vector<std::string>& arguments, std::chrono::milliseconds limit) {
    const TimeLeft time(limit);
    const std::string late = "did not end within " + std::to_string(limit.count()) + " ms";
    check::ChildProcess child(check::Command{program, arguments}, HexText(seed) + "\n");
    std::string output;
    while (child.ReadSome(time.Share(), &output) != check::ChildProcess::Read::kEnd) {
        ThrowIfInterrupted();
        if (time.IsOver()) Refuse(program, late);
        if (output.size() > kMostOutput) Refuse(program, "prints more than a key");
    }
    std::optional<std::string> end;
    while (!(end = child.WaitForEnd(time.Share()))) {
        ThrowIfInterrupted();
        if (time.IsOver()) Refuse(program, late);
    }
    if (!end->empty()) Refuse(program, "failed: " + *end);
    const std::optional<Bytes> key = ParseHex(output);
    if (!key || key->empty()) {
        constexpr std::size_t kShown = 60;
        Refuse(program, "printed '" + OnOneLine(output.substr(0, kShown)) +
                            "', which is no key in hexadecimal");
    }
    return *key;
}

}  // namespace dpdu::script
