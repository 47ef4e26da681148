#include <memory>

#include "options/command_set.h"
#include "options/link_options.h"

namespace dpdu {
namespace {

constexpr char kTesterPresentExamples[] = R"(
Starts communication, which makes the library send the message periodically, and stops it
after --time seconds or on Ctrl-C. Tarvik's library sends messages of up to 32 bytes.

Examples:
  dpdu tester-present
  dpdu tester-present --ecu 7E1:7E9 --period 500 --time 60
  dpdu tester-present --functional 7DF --message 3E80)";

constexpr char kMonitorExamples[] = R"(
Shows modules as they come and go, the states of the link to the control unit and, if a
request is given, the states, answers and errors each time it is sent. Continues when the
dongle is unplugged: the library is then constructed again until the dongle is back. With
this project's library it also shows when the relay is lost and when it is there again.

Ends after --count events, after --time seconds or on Ctrl-C. --json prints one document
per line, one for each event.

Examples:
  dpdu monitor
  dpdu monitor 22F190 --ecu 7E1:7E9 --period 5000
  dpdu monitor 3E00 --json --time 60 >events.jsonl)";

// What CP_TesterPresentMessage takes in this project's library.
constexpr std::size_t kLongestMessage = 32;

struct TesterPresentTexts {
    std::vector<std::string> ecus;
    std::string functional;
    std::uint32_t period_ms = 2000;
    std::string message = "3E80";
    double seconds = 0;
    std::vector<std::string> params;
    LinkOptions link;
};

TesterPresentOptions ParseTesterPresent(const TesterPresentTexts& texts) {
    TesterPresentOptions options;
    options.ecus = ParseEcus(texts.ecus);
    options.limit = ParseSeconds(texts.seconds);
    options.link = texts.link;
    options.link.tester_present_ms = texts.period_ms;
    options.link.tester_present_message = ParseBytes(texts.message, "the message");
    const std::size_t size = options.link.tester_present_message.size();
    if (size > kLongestMessage) {
        throw UsageError("a tester present message has at most " + std::to_string(kLongestMessage) +
                         " bytes, this one has " + std::to_string(size));
    }
    options.link.params = ParseAssignments(texts.params);
    if (!texts.functional.empty()) options.functional_id = RequireCanId(texts.functional);
    return options;
}

void AddTesterPresent(CommandSet* commands) {
    const auto texts = std::make_shared<TesterPresentTexts>();
    CLI::App* command = commands->Add(
        {"tester-present", "keep a diagnostic session alive", kTesterPresentExamples},
        [texts](auto common) {
            const TesterPresentOptions options = ParseTesterPresent(*texts);
            return [=](Output* output) { return RunTesterPresent(common, options, output); };
        });
    AddMillisecondsOption(command, "--period", &texts->period_ms,
                          "time between two messages (default: 2000)");
    command->add_option("--message", texts->message, "message to send (default: 3E80)")
        ->type_name("HEX");
    command
        ->add_option("--functional", texts->functional,
                     "send to all control units at once on this CAN identifier")
        ->type_name("ID");
    AddTimeOption(command, &texts->seconds);
    AddEcuOption(command, &texts->ecus);
    AddParamOption(command, &texts->params);
    AddProtocolOptions(command, &texts->link);
}

struct MonitorTexts {
    std::vector<std::string> words;
    std::string ecu = "7E0:7E8";
    std::uint32_t period_ms = 1000;
    std::uint64_t count = 0;
    double seconds = 0;
    LinkTexts link;
};

MonitorOptions ParseMonitor(const MonitorTexts& texts) {
    MonitorOptions options;
    if (!texts.words.empty()) options.request = ParseWords(texts.words, "the request");
    options.ecu = ParseEcus({texts.ecu}).front();
    options.period = std::chrono::milliseconds(texts.period_ms);
    options.count = texts.count;
    options.limit = ParseSeconds(texts.seconds);
    options.link = ParseLink(texts.link);
    return options;
}

void AddMonitor(CommandSet* commands) {
    const auto texts = std::make_shared<MonitorTexts>();
    CLI::App* command = commands->Add(
        {"monitor", "show events as they occur", kMonitorExamples}, [texts](auto common) {
            const MonitorOptions options = ParseMonitor(*texts);
            return [=](Output* output) { return RunMonitor(common, options, output); };
        });
    command->add_option("bytes", texts->words,
                        "request to send periodically, in hexadecimal, or -");
    command->add_option("--ecu", texts->ecu, "control unit of the link (default: 7E0:7E8)")
        ->type_name("REQUEST:RESPONSE");
    AddMillisecondsOption(command, "--period", &texts->period_ms,
                          "time between two requests (default: 1000)");
    AddCountOption(command, &texts->count, "end after this many events");
    AddTimeOption(command, &texts->seconds);
    AddTimingOptions(command, &texts->link);
}

}  // namespace

void AddWatchCommands(CommandSet* commands) {
    AddTesterPresent(commands);
    AddMonitor(commands);
}

}  // namespace dpdu
