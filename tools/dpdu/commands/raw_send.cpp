#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "commands/watch.h"
#include "console/progress.h"

namespace dpdu {
namespace {

// Returns the number of frames sent until the end or an interruption.
std::uint64_t SendAll(const ModuleSession& module, const RawSendOptions& options) {
    RawLink link(module.Module(), options.link);
    Watch watch(module.Module(), std::nullopt);
    const Progress progress("sending");
    Deadline::Clock::time_point next = Deadline::Clock::now();
    std::uint64_t sent = 0;
    while (options.repeat == 0 || sent < options.repeat) {
        if (sent > 0 && !watch.WaitUntil(next += options.period)) break;
        link.Send(options.frame, options.primitive);
        ++sent;
    }
    link.FinishSending();
    if (sent > 1) watch.LookAtModule();
    return sent;
}

void Print(const CanFrame& frame, std::uint64_t sent, Output* output) {
    if (output->AsJson()) {
        output->Document({{"id", FrameIdText(frame)},
                          {"extended", frame.is_29_bit},
                          {"data", HexText(frame.data)},
                          {"sent", sent}});
        return;
    }
    std::string line = FrameIdText(frame) + "  [" + std::to_string(frame.data.size()) + "]";
    if (!frame.data.empty()) line += "  " + HexText(frame.data, " ");
    output->Line(line + "  sent " + (sent == 1 ? "once" : std::to_string(sent) + " times"));
}

}  // namespace

ExitCode RunRawSend(const CommonOptions& common, const RawSendOptions& options, Output* output) {
    const ModuleSession module(common);
    const std::uint64_t sent = SendAll(module, options);
    Print(options.frame, sent, output);
    if (sent < options.repeat) ErrorLine("interrupted");
    return sent >= options.repeat ? ExitCode::kOk : ExitCode::kInterrupted;
}

}  // namespace dpdu
