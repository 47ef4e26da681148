#include <cmath>
#include <memory>

#include "console/failure.h"
#include "options/command_set.h"
#include "text/hex.h"

namespace dpdu {
namespace {

constexpr char kTraceFooter[] = R"(
Examples:
  dpdu trace summary dpdu_coptrace_4711_1.jsonl
  dpdu trace timeline --errors dpdu_coptrace_4711_1.jsonl
  dpdu trace export --format asc -o bus.asc dpdu_coptrace_4711_1.jsonl)";

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

constexpr char kTimelineFooter[] = R"(
One row for each ComPrimitive, in the order of their ends: when it was started, its module
and link, its handle, how long it took, how it ended, and a bar with the parts of that
time. A column shows what took most of its time. Bars are as long as 95 of a hundred
requests need; with --waterfall they stand where their requests were in time.

END is ok, NRC and the code of a negative response, error, cancel, open (no end was
recorded) or raw (a raw CAN link). --errors shows everything but ok and raw, and
requests that were sent again after a time-out.

Examples:
  dpdu trace timeline trace.jsonl
  dpdu trace timeline --errors trace.jsonl
  dpdu trace timeline --link 0:2 --from 12.5 --to 13 --waterfall trace.jsonl
  dpdu trace timeline --columns 200 trace.jsonl | less -S)";

constexpr char kExportFooter[] = R"(
Formats:
  candump  the log of candump, one frame a line, for canplayer and others
  asc      Vector ASC, hexadecimal, times from the trace's first line
  chrome   for chrome://tracing and Perfetto: a process for each module, a thread for
           each link, spans for requests, waiting and callbacks. Takes several traces.

The library's trace holds whole requests and answers; the dongle cuts them into ISO-TP
frames itself. candump and asc show them as the frames that must have carried them:
a single frame, or first and consecutive frames which all have the message's time. Flow
control and filling bytes were not seen and are left out, and so are responses that the
dongle kept to itself, tester present, and what the trace has cut off long payloads.
In asc a comment stands in front of frames that were reconstructed; a candump log has
no comments. Raw CAN frames are shown exactly as they were.

An identifier above 7FF is taken for one of 29 bits. Each module is a bus: can0, channel 1
and so on. Times in a candump log are those of the computer's performance counter, as
in the trace: it holds no calendar time.

Examples:
  dpdu trace export --format candump trace.jsonl
  dpdu trace export --format asc -o bus.asc trace.jsonl
  dpdu trace export --format chrome -o trace.json dpdu_coptrace_*.jsonl)";

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

// "1" is a link, "0:1" a module and its link.
void ParseLinkText(const std::string& text, trace::TimelineFilter* filter) {
    const std::size_t colon = text.find(':');
    const bool has_module = colon != std::string::npos;
    if (has_module) filter->module = ParseNumber(text.substr(0, colon));
    filter->link = ParseNumber(has_module ? text.substr(colon + 1) : text);
    if (!filter->link || (has_module && !filter->module)) {
        throw UsageError("'" + text + "' is not a link such as 1 or, with its module, 0:1");
    }
}

std::uint64_t Microseconds(double seconds) {
    return static_cast<std::uint64_t>(std::llround(seconds * 1e6));
}

void AddTimeline(CommandSet* commands, CLI::App* group) {
    constexpr double kLatestSecond = 1e9;
    constexpr std::size_t kMostColumns = 1000;
    const auto options = std::make_shared<TraceOptions>();
    CLI::App* command = AddTraceAction(
        commands, group, {"timeline", "each request with the parts of its time", kTimelineFooter},
        RunTraceTimeline, options);
    command
        ->add_option_function<std::string>(
            "--link", [options](const std::string& text) { ParseLinkText(text, &options->filter); },
            "only requests of this link")
        ->type_name("[MODULE:]LINK");
    command
        ->add_option_function<double>(
            "--from",
            [options](double seconds) { options->filter.from_us = Microseconds(seconds); },
            "only from this time of the session on")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kLatestSecond));
    command
        ->add_option_function<double>(
            "--to", [options](double seconds) { options->filter.to_us = Microseconds(seconds); },
            "only up to this time of the session")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kLatestSecond));
    command->add_flag("--errors", options->filter.only_problems, "only what did not go well");
    command->add_flag("--waterfall", options->is_waterfall,
                      "put the bars where their requests were in time");
    command
        ->add_option("--columns", options->columns,
                     "width of the rows (default: the terminal's, else 100)")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, kMostColumns));
}

void AddExport(CommandSet* commands, CLI::App* group) {
    const auto options = std::make_shared<TraceOptions>();
    CLI::App* command = AddTraceAction(
        commands, group, {"export", "write a trace in another program's format", kExportFooter},
        RunTraceExport, options);
    command->add_option("--format", options->format, "candump, asc or chrome")
        ->type_name("candump|asc|chrome")
        ->check(CLI::IsMember({"candump", "asc", "chrome"}).description(""))
        ->required();
    command->add_option("-o,--output", options->target, "file to write (default: standard output)")
        ->type_name("FILE");
}

}  // namespace

void AddTraceCommands(CommandSet* commands) {
    CLI::App* group = commands->AddGroup({"trace", "read the library's trace files", kTraceFooter});
    AddSummary(commands, group);
    AddTimeline(commands, group);
    AddExport(commands, group);
}

}  // namespace dpdu
