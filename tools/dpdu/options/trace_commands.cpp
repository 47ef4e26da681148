#include <cmath>
#include <memory>

#include "console/failure.h"
#include "options/command_set.h"
#include "text/hex.h"
#include "trace/trace_files.h"

namespace dpdu {
namespace {

constexpr char kTraceFooter[] = R"(
Examples:
  dpdu trace summary dpdu_coptrace_4711_1.jsonl
  dpdu trace timeline --errors dpdu_coptrace_4711_1.jsonl
  dpdu trace export --format asc -o bus.asc dpdu_coptrace_4711_1.jsonl
  dpdu trace report -o report.html dpdu_coptrace_4711_1.jsonl
  dpdu trace prune --older-than 7d)";

constexpr char kTraceSummaryFooter[] = R"(
The library writes its trace to dpdu_coptrace_PROCESS_SESSION.jsonl in the folder for
temporary files. Several files are added up.

Times are measured by the library: an answer time lasts from passing the request to the
dongle until its answer is back. Answers to a functional request arrive together, so the
group has a time and its control units have none. P95 is the 95th percentile, to within
0.4 %.

Damaged and unknown lines are skipped; standard error shows how many there are.

Examples:
  dpdu trace summary dpdu_coptrace_4711_1.jsonl
  dpdu trace summary --slowest 50 dpdu_coptrace_*.jsonl
  dpdu trace summary --json trace.jsonl)";

constexpr char kTimelineFooter[] = R"(
One row per ComPrimitive, ordered by end: start time, module and link, handle, duration,
result, and a bar with the parts of its time. A column shows what took most of its time.
A full bar is the 95th percentile of all durations; with --waterfall bars are placed at
their requests' times.

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
  candump  candump log, one frame per line, for canplayer and others
  asc      Vector ASC, hexadecimal, times relative to the trace's first line
  chrome   for chrome://tracing and Perfetto: a process per module, a thread per link,
           spans for requests, waiting and callbacks. Accepts several traces.
  pcapng   for Wireshark and tshark: raw frames on interfaces can0, can1..., requests and
           answers on uds0, uds1..., where the UDS dissector decodes them as whole
           messages. The identifiers are shown as ports. Not for a terminal.

The library's trace contains whole requests and answers; the dongle splits them into
ISO-TP frames itself. candump and asc show the frames that must have carried them: a
single frame, or first and consecutive frames, all with the message's time. Flow control
and padding are not known and are omitted, and so are responses that the dongle does not
pass on, tester present, and the truncated part of long payloads. In asc a comment
precedes reconstructed frames; a candump log has no comments. Raw CAN frames are shown
exactly as recorded.

Identifiers above 7FF are taken as 29-bit identifiers. Each module is a bus: can0, channel
1 and so on.

A trace has no calendar time, only the computer's performance counter. Times of day are
derived from the time at which the file was last changed, which is that of its last line,
so keep it when you copy a trace (cp -p). Times are UTC. Of a pipe no time of day is
known: then times are those of the counter.

Examples:
  dpdu trace export --format candump trace.jsonl
  dpdu trace export --format asc -o bus.asc trace.jsonl
  dpdu trace export --format chrome -o trace.json dpdu_coptrace_*.jsonl
  dpdu trace export --to pcapng -o trace.pcapng trace.jsonl)";

constexpr char kReportFooter[] = R"(
One HTML file that needs no network and no server: it opens in any current browser and can
be mailed. It shows figures, a timeline of control units, links, raw frames, relay packets
and callbacks, and answer times, with filters that all of them follow. What is seen is in
the page's address, and can be shared as a link to the same file.

Several traces share one timeline. Times of day are derived as by dpdu trace export; if
one of the files has none (a pipe), all times are those of the computer's counter.

A report holds what the traces hold, security keys and VINs among it.

Examples:
  dpdu trace report trace.jsonl
  dpdu trace report -o report.html dpdu_coptrace_*.jsonl
  dpdu trace report -o report.html $(dpdu trace latest))";

constexpr std::uint32_t kMostSlowest = 10'000;

using TraceCommand = ExitCode (*)(const TraceOptions&, Output*);

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
        commands, group, {"summary", "show a summary in figures", kTraceSummaryFooter},
        RunTraceSummary, options);
    command
        ->add_option("--slowest", options->slowest,
                     "number of slowest requests to show (default: 10)")
        ->type_name("N")
        ->check(CLI::Range(0U, kMostSlowest));
    command->add_flag("--json", commands->Common()->as_json, "print one JSON document");
}

// Parses "1" (link) or "0:1" (module and link).
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
        commands, group,
        {"timeline", "show each request with the parts of its time", kTimelineFooter},
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
            "only from this time of the session")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kLatestSecond));
    command
        ->add_option_function<double>(
            "--to", [options](double seconds) { options->filter.to_us = Microseconds(seconds); },
            "only until this time of the session")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kLatestSecond));
    command->add_flag("--errors", options->filter.only_problems, "only requests with problems");
    command->add_flag("--waterfall", options->is_waterfall, "place bars at their requests' times");
    command
        ->add_option("--columns", options->columns,
                     "width of the rows (default: the terminal's, else 100)")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, kMostColumns));
}

void AddExport(CommandSet* commands, CLI::App* group) {
    const auto options = std::make_shared<TraceOptions>();
    CLI::App* command = AddTraceAction(
        commands, group, {"export", "convert a trace to another program's format", kExportFooter},
        RunTraceExport, options);
    command->add_option("--format,--to", options->format, "candump, asc, chrome or pcapng")
        ->type_name("candump|asc|chrome|pcapng")
        ->check(CLI::IsMember({"candump", "asc", "chrome", "pcapng"}).description(""))
        ->required();
    command->add_option("-o,--output", options->target, "file to write (default: standard output)")
        ->type_name("FILE");
}

void AddReport(CommandSet* commands, CLI::App* group) {
    const auto options = std::make_shared<TraceOptions>();
    options->target = "report.html";
    CLI::App* command = AddTraceAction(
        commands, group, {"report", "write a page to look at in a browser", kReportFooter},
        RunTraceReport, options);
    command->add_option("-o,--output", options->target, "file to write (default: report.html)")
        ->type_name("FILE");
}

constexpr char kLatestFooter[] = R"(
Prints the path of the trace that was written last in the folder for temporary files, by
any process.

Examples:
  dpdu trace latest
  dpdu trace latest --log
  dpdu trace summary $(dpdu trace latest)
  dpdu trace export --format asc -o bus.asc $(dpdu trace latest))";

constexpr char kPruneFooter[] = R"(
Removes traces and logs of this library from the folder for temporary files, by their
names. It asks before; where nobody can be asked it needs --yes. Files of processes that
still run are kept, and links are never followed.

Examples:
  dpdu trace prune --older-than 7d
  dpdu trace prune --older-than 12h --dry-run
  dpdu trace prune --older-than 7d --yes)";

void AddLatest(CommandSet* commands, CLI::App* group) {
    const auto options = std::make_shared<TraceLatestOptions>();
    CLI::App* command = commands->AddOffline(
        {"latest", "show where the newest trace is", kLatestFooter},
        [options](auto) {
            return [=](Output* output) { return RunTraceLatest(*options, output); };
        },
        group);
    command->add_flag("--log", options->is_log, "the newest debug log instead");
    command->add_flag("--json", commands->Common()->as_json, "print one JSON document");
}

struct PruneTexts {
    std::string age;
    TracePruneOptions options;
};

void AddPrune(CommandSet* commands, CLI::App* group) {
    const auto texts = std::make_shared<PruneTexts>();
    CLI::App* command = commands->AddOffline(
        {"prune", "remove old traces and logs", kPruneFooter},
        [texts](auto) {
            const std::optional<std::chrono::seconds> age = trace::ParseAge(texts->age);
            if (!age)
                throw UsageError("'" + texts->age +
                                 "' is not an age such as 7d, 12h or 30m, at most 36500d");
            texts->options.older_than = *age;
            return [options = texts->options](Output* output) {
                return RunTracePrune(options, output);
            };
        },
        group);
    command->add_option("--older-than", texts->age, "age, in days, hours, minutes or seconds")
        ->type_name("AGE")
        ->required();
    command->add_flag("--yes", texts->options.is_agreed, "do not ask");
    command->add_flag("--dry-run", texts->options.is_dry_run, "only list the files");
}

}  // namespace

void AddTraceCommands(CommandSet* commands) {
    CLI::App* group = commands->AddGroup({"trace", "read the library's trace files", kTraceFooter});
    AddSummary(commands, group);
    AddTimeline(commands, group);
    AddExport(commands, group);
    AddReport(commands, group);
    AddLatest(commands, group);
    AddPrune(commands, group);
}

}  // namespace dpdu
