#include <algorithm>
#include <memory>

#include "console/failure.h"
#include "options/command_set.h"
#include "options/link_options.h"

namespace dpdu {
namespace {

constexpr char kScanFooter[] = R"(
Finds the control units on the bus. It only reads: TesterPresent (3E 00) finds them; then each
is asked for the default session (10 01), which ends another session that a control unit is
in, for the active session before that (22 F186), for the number of trouble codes (19 01 FF)
and, with --dids, for data identifiers (22). Nothing else is ever sent; other sessions are not
entered, so which ones there are is not shown.

With Tarvik's library the scan sends single CAN frames, --gap apart, and hears every answer,
whatever its identifier. With other libraries it opens a link for each request identifier,
which takes longer and finds only the usual response identifiers: --offset above the request's,
or 18DAyyxx for 18DAxxyy. --method chooses; raw frames need a library with raw links, and
--primitive if it does not send them with STARTCOMM. A control unit that is slower than
--answer-time may be missed. One that has answered a functional request is also asked on its
usual request identifier if that is outside the ranges, and shown as ? if that is not it.

RANGE is 700-7FF, 7E0 or 18DA00F1-18DAFFF1, which counts in the target byte. Identifiers
outside 700-7FF carry other traffic in most vehicles; do not scan them on the road.

Ctrl-C ends the scan and shows what was found so far.

Examples:
  dpdu scan
  dpdu scan --range 7E0-7E7 --dids
  dpdu scan --range 600-6FF --offset 80 --dids F180-F1FF --dids 0100 --json
  dpdu scan --method links --library ./other_vendor.so)";

constexpr char kWholeRange11[] = "700-7FF";
constexpr char kWholeRange29[] = "18DA00F1-18DAFFF1";
constexpr char kUsualIdentifiers[] = "F180-F19F";

struct ScanTexts {
    std::vector<std::string> ranges;
    std::vector<std::string> functional;
    std::string offset = "8";
    std::vector<std::string> identifiers;
    std::uint32_t gap_ms = 10;
    std::uint32_t answer_ms = 100;
    std::string method = "auto";
    std::string primitive = "startcomm";
    LinkTexts link;
};

// "first-last" or one identifier.
std::pair<std::string, std::string> Ends(const std::string& text) {
    const std::size_t dash = text.find('-');
    if (dash == std::string::npos) return {text, text};
    return {text.substr(0, dash), text.substr(dash + 1)};
}

void AddIds(const std::string& text, std::vector<std::uint32_t>* ids) {
    constexpr std::uint32_t kMost = kLargest11BitId + 1;
    constexpr std::uint32_t kTargetStep = 0x100;
    const auto [first_text, last_text] = Ends(text);
    const std::optional<std::uint32_t> first = ParseCanId(first_text);
    const std::optional<std::uint32_t> last = ParseCanId(last_text);
    const bool is_fixed = first && (*first & 0xFFFF0000) == 0x18DA0000;
    const std::uint32_t step = is_fixed ? kTargetStep : 1;
    if (!first || !last || *last < *first || (*last - *first) % step != 0 ||
        (*last - *first) / step >= kMost ||
        (*first <= kLargest11BitId) != (*last <= kLargest11BitId)) {
        throw UsageError("'" + text +
                         "' is not a range of request identifiers such as 700-7FF or "
                         "18DA00F1-18DAFFF1, at most 2048");
    }
    for (std::uint64_t id = *first; id <= *last; id += step)
        ids->push_back(static_cast<std::uint32_t>(id));
}

IdentifierRange ParseIdentifiers(const std::string& text) {
    const auto [first_text, last_text] = Ends(text);
    const std::optional<std::uint32_t> first = ParseHexNumber(first_text);
    const std::optional<std::uint32_t> last = ParseHexNumber(last_text);
    if (!first || !last || *last < *first || *last > 0xFFFF) {
        throw UsageError("'" + text +
                         "' is not a range of data identifiers such as F180-F19F or F190");
    }
    return {static_cast<std::uint16_t>(*first), static_cast<std::uint16_t>(*last)};
}

ScanMethod ParseMethod(const std::string& text) {
    if (text == "auto") return ScanMethod::kAutomatic;
    if (text == "raw") return ScanMethod::kRaw;
    if (text == "links") return ScanMethod::kLinks;
    throw UsageError("'" + text + "' is not a method: auto, raw or links");
}

std::vector<std::uint32_t> ParseRanges(const std::vector<std::string>& texts) {
    std::vector<std::uint32_t> ids;
    for (const std::string& text : texts)
        AddIds(text, &ids);
    if (texts.empty()) {
        AddIds(kWholeRange11, &ids);
        AddIds(kWholeRange29, &ids);
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

// The usual functional identifiers for the kinds of request identifiers.
std::vector<std::uint32_t> FunctionalIdsFor(const std::vector<std::uint32_t>& ids) {
    const auto is_long = [](std::uint32_t id) { return id > kLargest11BitId; };
    std::vector<std::uint32_t> functional;
    if (!std::all_of(ids.begin(), ids.end(), is_long)) functional.push_back(0x7DF);
    if (std::any_of(ids.begin(), ids.end(), is_long)) functional.push_back(0x18DB33F1);
    return functional;
}

// The library would send the message that these set.
void RefuseTesterPresent(const LinkOptions& link) {
    for (const auto& [name, value] : link.params) {
        if (name.starts_with("CP_TesterPresent")) {
            throw UsageError("a scan only reads, so " + name + " cannot be set");
        }
    }
}

ScanOptions ParseScan(const ScanTexts& texts) {
    ScanOptions options;
    options.method = ParseMethod(texts.method);
    options.request_ids = ParseRanges(texts.ranges);
    for (const std::string& text : texts.functional)
        options.functional_ids.push_back(RequireCanId(text));
    if (texts.functional.empty()) options.functional_ids = FunctionalIdsFor(options.request_ids);
    // A functional request asks all; as a physical one it would only ask them again.
    std::erase_if(options.request_ids, [&options](std::uint32_t id) {
        const std::vector<std::uint32_t>& functional = options.functional_ids;
        return std::find(functional.begin(), functional.end(), id) != functional.end();
    });
    const std::optional<std::uint32_t> offset = ParseHexNumber(texts.offset);
    if (!offset || *offset > kLargest11BitId) {
        throw UsageError("'" + texts.offset + "' is not an offset such as 8 or 80, hexadecimal");
    }
    options.response_offset = *offset;
    for (const std::string& text : texts.identifiers)
        options.identifiers.push_back(ParseIdentifiers(text.empty() ? kUsualIdentifiers : text));
    options.gap = std::chrono::milliseconds(texts.gap_ms);
    options.answer_time = std::chrono::milliseconds(texts.answer_ms);
    options.raw_primitive = ParseSendPrimitive(texts.primitive);
    options.link = ParseLink(texts.link);
    RefuseTesterPresent(options.link);
    options.raw_link.bus_type = options.link.bus_type;
    options.raw_link.params = options.link.params;
    return options;
}

}  // namespace

void AddScanCommands(CommandSet* commands) {
    const auto texts = std::make_shared<ScanTexts>();
    CLI::App* command = commands->Add(
        {"scan", "find the control units on the bus", kScanFooter}, [texts](auto common) {
            const ScanOptions options = ParseScan(*texts);
            return [=](Output* output) { return RunScan(common, options, output); };
        });
    AddRepeatable(command, "--range", &texts->ranges,
                  "request identifiers to try (default: 700-7FF and 18DA00F1-18DAFFF1)")
        ->type_name("RANGE");
    AddRepeatable(command, "--functional", &texts->functional,
                  "functional identifier to try (default: 7DF and 18DB33F1)")
        ->type_name("ID");
    command
        ->add_option("--offset", texts->offset,
                     "usual distance from request to response identifier (default: 8)")
        ->type_name("HEX");
    AddRepeatable(command, "--dids", &texts->identifiers,
                  "also read data identifiers (default range: F180-F19F)")
        ->type_name("[RANGE]")
        ->expected(0, 1);
    AddMillisecondsOption(command, "--gap", &texts->gap_ms,
                          "time between two raw frames (default: 10)");
    AddMillisecondsOption(command, "--answer-time", &texts->answer_ms,
                          "longest time that a control unit takes to answer (default: 100)");
    command->add_option("--method", texts->method, "how to look for them (default: auto)")
        ->type_name("auto|raw|links");
    command
        ->add_option("--primitive", texts->primitive,
                     "ComPrimitive that sends raw frames (default: startcomm)")
        ->type_name("startcomm|sendrecv");
    AddQuietTimingOptions(command, &texts->link);
}

}  // namespace dpdu
