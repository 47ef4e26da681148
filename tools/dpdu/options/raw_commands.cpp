#include <memory>

#include "console/failure.h"
#include "options/command_set.h"
#include "options/link_options.h"

namespace dpdu {
namespace {

constexpr char kRawExamples[] = R"(
Examples:
  dpdu raw send 7DF 02 01 00
  dpdu raw listen --count 100
  dpdu raw send --help
  dpdu raw listen --help)";

constexpr char kSendExamples[] = R"(
Identifiers above 7FF or with eight digits have 29 bits; with --extended all have.

Libraries differ in how they send a frame on a raw link: Tarvik's sends it with the
ComPrimitive STARTCOMM, others may need SENDRECV.

Examples:
  dpdu raw send 7DF 02 01 00
  dpdu raw send 123 DEADBEEF --repeat 50 --period 20
  dpdu raw send 18DAFFF1 023E00 --repeat 0        until Ctrl-C
  dpdu raw send 123 01 --primitive sendrecv --library ./other_vendor.so)";

constexpr char kListenExamples[] = R"(
Ends after --count frames, after --time seconds or on Ctrl-C, whichever comes first, and
then shows the number of frames and the mean period of each identifier. Times are the
library's, since the first frame; with --log they are calendar times. Frames that match no
filter are not counted.

On a terminal --table is updated in place, in the columns and lines that there are. RATE is
that of the last two seconds; bytes that have changed within a second are in reverse, unless
the environment has NO_COLOR.

--pcapng writes each frame at once, with calendar times, so that Wireshark can show them as
they come. It never writes over a file that exists.

--json prints one document per line: one for each frame (none with --table), and the totals.

Examples:
  dpdu raw listen
  dpdu raw listen --filter 7E8 --filter 7E0/7F8 --count 100
  dpdu raw listen --table                         one row per identifier, kept up to date
  dpdu raw listen --log --time 60 >drive.log      for tools that read candump logs
  dpdu raw listen --pcapng - | wireshark -k -i -
  dpdu raw listen --json --time 5)";

struct RawTexts {
    LinkOptions link = RawLinkOptions();
    std::vector<std::string> params;
};

void AddRawLinkOptions(CLI::App* command, RawTexts* texts) {
    AddParamOption(command, &texts->params);
    AddProtocolOptions(command, &texts->link);
}

LinkOptions ParseRawLink(const RawTexts& texts) {
    LinkOptions link = texts.link;
    link.params = ParseAssignments(texts.params);
    return link;
}

struct SendTexts {
    std::string id;
    std::vector<std::string> data;
    bool is_extended = false;
    std::uint32_t repeat = 1;
    std::uint32_t period_ms = 100;
    std::string primitive = "startcomm";
    RawTexts raw;
};

CanFrame ParseFrame(const SendTexts& texts) {
    CanFrame frame;
    frame.id = RequireCanId(texts.id);
    frame.is_29_bit = texts.is_extended || frame.id > kLargest11BitId || texts.id.size() == 8;
    if (!texts.data.empty()) frame.data = ParseWords(texts.data, "the data");
    if (frame.data.size() > kLargestFrame) {
        throw UsageError("a frame holds at most 8 bytes, these are " +
                         std::to_string(frame.data.size()));
    }
    return frame;
}

void AddSend(CommandSet* commands, CLI::App* group) {
    const auto texts = std::make_shared<SendTexts>();
    CLI::App* command = commands->Add(
        {"send", "send a CAN frame", kSendExamples},
        [texts](auto common) {
            RawSendOptions options;
            options.frame = ParseFrame(*texts);
            options.repeat = texts->repeat;
            options.period = std::chrono::milliseconds(texts->period_ms);
            options.primitive = ParseSendPrimitive(texts->primitive);
            options.link = ParseRawLink(texts->raw);
            return [=](Output* output) { return RunRawSend(common, options, output); };
        },
        group);
    command->add_option("id", texts->id, "CAN identifier in hexadecimal")->required();
    command->add_option("data", texts->data, "up to 8 bytes in hexadecimal, or -");
    command->add_flag("--extended", texts->is_extended, "the identifier has 29 bits");
    command
        ->add_option("--repeat", texts->repeat,
                     "number of times to send it (default: 1); 0: until Ctrl-C")
        ->type_name("N");
    AddMillisecondsOption(command, "--period", &texts->period_ms,
                          "time between two frames (default: 100)");
    command
        ->add_option("--primitive", texts->primitive,
                     "ComPrimitive to send with (default: startcomm)")
        ->type_name("startcomm|sendrecv");
    AddRawLinkOptions(command, &texts->raw);
}

struct ListenTexts {
    std::vector<std::string> filters;
    std::uint64_t count = 0;
    double seconds = 0;
    bool has_table = false;
    bool is_log = false;
    std::string capture;
    RawTexts raw;
};

RawListenOptions ParseListen(const ListenTexts& texts) {
    RawListenOptions options;
    for (const std::string& text : texts.filters) {
        const std::optional<CanFilter> filter = ParseCanFilter(text);
        if (!filter) {
            throw UsageError("'" + text + "' is not a filter such as 7E8 or 7E0/7F8");
        }
        options.filters.push_back(*filter);
    }
    options.count = texts.count;
    options.limit = ParseSeconds(texts.seconds);
    if (texts.has_table) options.style = FrameStyle::kTable;
    if (texts.is_log) options.style = FrameStyle::kCandumpLog;
    if (!texts.capture.empty()) options.style = FrameStyle::kPcapng;
    options.capture = texts.capture;
    options.link = ParseRawLink(texts.raw);
    return options;
}

void AddListen(CommandSet* commands, CLI::App* group) {
    const auto texts = std::make_shared<ListenTexts>();
    CLI::App* command = commands->Add(
        {"listen", "show the CAN frames on the bus", kListenExamples},
        [texts](auto common) {
            const RawListenOptions options = ParseListen(*texts);
            return [=](Output* output) { return RunRawListen(common, options, output); };
        },
        group);
    AddRepeatable(command, "--filter", &texts->filters, "only these identifiers (default: all)")
        ->type_name("ID[/MASK]");
    AddCountOption(command, &texts->count, "end after this many frames");
    AddTimeOption(command, &texts->seconds);
    CLI::Option* table = command->add_flag("--table", texts->has_table,
                                           "show a table, updated in place on a terminal");
    CLI::Option* log = command->add_flag("--log", texts->is_log, "print the lines of a candump log")
                           ->excludes(table);
    command->add_option("--pcapng", texts->capture, "write a capture for Wireshark; -: to a pipe")
        ->type_name("FILE")
        ->excludes(table)
        ->excludes(log);
    AddRawLinkOptions(command, &texts->raw);
}

}  // namespace

void AddRawCommands(CommandSet* commands) {
    CLI::App* group =
        commands->AddGroup({"raw", "send and receive single CAN frames", kRawExamples});
    AddSend(commands, group);
    AddListen(commands, group);
}

}  // namespace dpdu
