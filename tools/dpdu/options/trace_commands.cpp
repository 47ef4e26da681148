#include <memory>

#include "options/command_set.h"

namespace dpdu {
namespace {

constexpr char kTraceFooter[] = R"(
Examples:
  dpdu trace summary dpdu_coptrace_4711_1.jsonl)";

constexpr char kTraceSummaryFooter[] = R"(
The library writes its trace to dpdu_coptrace_PROCESS_SESSION.jsonl in the folder for
temporary files. Several files are added up.

Times are taken where the library runs: an answer time lasts from handing the request to
the dongle until its answer is back. Answers to a functional request arrive together,
so the group has a time and its control units have none. P95 is the time that 95 of a
hundred answers do not exceed, to within 0.4 %.

Lines that are damaged or unknown are passed over and counted on standard error.

Examples:
  dpdu trace summary dpdu_coptrace_4711_1.jsonl
  dpdu trace summary --slowest 50 dpdu_coptrace_*.jsonl
  dpdu trace summary --json trace.jsonl)";

constexpr std::uint32_t kMostSlowest = 10'000;

using TraceCommand = bool (*)(const TraceOptions&, Output*);

CLI::App* AddTraceAction(CommandSet* commands, CLI::App* group, const CommandTexts& texts,
                         TraceCommand run_command, const std::shared_ptr<TraceOptions>& options) {
    CLI::App* command = commands->AddOffline(
        texts,
        [options, run_command](auto) {
            return [=, options = *options](Output* output) { return run_command(options, output); };
        },
        group);
    command->add_option("files", options->files, "trace files")->type_name("FILE")->required();
    return command;
}

void AddSummary(CommandSet* commands, CLI::App* group) {
    const auto options = std::make_shared<TraceOptions>();
    CLI::App* command = AddTraceAction(
        commands, group, {"summary", "what happened, in figures", kTraceSummaryFooter},
        RunTraceSummary, options);
    command
        ->add_option("--slowest", options->slowest,
                     "how many of the slowest requests to show (default: 10)")
        ->type_name("N")
        ->check(CLI::Range(0U, kMostSlowest));
    command->add_flag("--json", commands->Common()->as_json, "print one JSON document");
}

}  // namespace

void AddTraceCommands(CommandSet* commands) {
    CLI::App* group = commands->AddGroup({"trace", "read the library's trace files", kTraceFooter});
    AddSummary(commands, group);
}

}  // namespace dpdu
