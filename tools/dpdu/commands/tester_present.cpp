#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "commands/watch.h"
#include "console/failure.h"
#include "console/progress.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

std::string Receivers(const TesterPresentOptions& options) {
    if (options.functional_id) return CanIdText(*options.functional_id);
    std::string text;
    for (const EcuAddress& ecu : options.ecus)
        text += (text.empty() ? "" : ", ") + EcuAddressText(ecu);
    return text;
}

void ThrowOnError(const PDU_EVENT_ITEM& item) {
    if (item.ItemType != PDU_IT_ERROR || !item.pData) return;
    const T_PDU_ERR_EVT code = static_cast<const PDU_ERROR_DATA*>(item.pData)->ErrorCodeId;
    throw Failure(ErrorEventText(code), ErrorEventCode(code));
}

// Until the time is up or the user ends it.
void KeepAlive(const ConnectedModule& module, const TesterPresentOptions& options) {
    Link link(module, options.link, {options.ecus, options.functional_id});
    link.StartCommunication();
    const Progress progress("tester present is on, Ctrl-C ends it");
    Session* session = module.GetSession();
    Watch watch(module, options.limit);
    do {
        session->DrainQueue(link.Handles().module, link.Handles().link, ThrowOnError);
        session->DrainQueue(link.Handles().module, PDU_HANDLE_UNDEF, ThrowOnError);
        session->DiscardQueue(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
    } while (watch.Wait());
}

}  // namespace

ExitCode RunTesterPresent(const CommonOptions& common, const TesterPresentOptions& options,
                          Output* output) {
    const ModuleSession module(common);
    const auto start = Deadline::Clock::now();
    KeepAlive(module.Module(), options);
    const std::chrono::duration<double> lasted = Deadline::Clock::now() - start;
    const std::uint32_t period_ms = options.link.tester_present_ms.value_or(0);
    if (output->AsJson()) {
        output->Document({{"message", HexText(options.link.tester_present_message)},
                          {"periodMs", period_ms},
                          {"to", Receivers(options)},
                          {"seconds", lasted.count()}});
        return ExitCode::kOk;
    }
    char seconds[40];
    std::snprintf(seconds, sizeof seconds, "%.1f s", lasted.count());
    output->Line("tester present " + HexText(options.link.tester_present_message) + " to " +
                 Receivers(options) + " every " + std::to_string(period_ms) + " ms for " + seconds);
    return ExitCode::kOk;
}

}  // namespace dpdu
