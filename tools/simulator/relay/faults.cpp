#include "relay/faults.h"

#include <algorithm>

#include "control/record_commands.h"
#include "control/words.h"

namespace brennix {

namespace {

enum class Arguments { kNone, kNumber, kNumberAndMore, kNumberAndBytes, kBytes, kText };

constexpr unsigned kToClient = 1;
constexpr unsigned kFromClient = 2;
constexpr unsigned kAccepting = 4;
constexpr unsigned kStream = 8;

struct ActionRow {
    const char* name;
    FaultAction action;
    unsigned places;
    Arguments arguments;
    const char* usage;
    const char* purpose;
};

constexpr ActionRow kActions[] = {
    {"drop", FaultAction::kDrop, kToClient, Arguments::kNone, "drop", "does not send the packet"},
    {"delay", FaultAction::kDelay, kToClient, Arguments::kNumber, "delay MS",
     "delays the packet and everything after it"},
    {"split", FaultAction::kSplit, kToClient, Arguments::kNumberAndMore, "split N [MS]",
     "sends pieces of N bytes, MS apart (WebSocket: a message each)"},
    {"swap", FaultAction::kSwap, kToClient, Arguments::kNone, "swap",
     "sends the packet after the next one"},
    {"join", FaultAction::kJoin, kToClient, Arguments::kNone, "join",
     "sends it together with the next one (WebSocket: in one message)"},
    {"replay", FaultAction::kReplay, kToClient, Arguments::kNone, "replay", "sends it twice"},
    {"flip", FaultAction::kFlip, kToClient, Arguments::kNumber, "flip BIT",
     "inverts bit BIT % 8 of byte BIT / 8 on the wire"},
    {"set", FaultAction::kSet, kToClient, Arguments::kNumberAndBytes, "set OFFSET HEX",
     "replaces bytes on the wire"},
    {"truncate", FaultAction::kTruncate, kToClient, Arguments::kNumber, "truncate N",
     "sends only N bytes of it, with a matching length"},
    {"length", FaultAction::kLength, kToClient, Arguments::kNumber, "length N",
     "puts another length into its header, such as 5000 or 7"},
    {"header", FaultAction::kHeader, kToClient, Arguments::kNumber, "header N",
     "sends a lone header with length N before it"},
    {"noise", FaultAction::kNoise, kToClient, Arguments::kBytes, "noise HEX",
     "sends these bytes before it"},
    {"text", FaultAction::kText, kToClient, Arguments::kText, "text TEXT",
     "sends a text message before it (WebSocket)"},
    {"recut", FaultAction::kRecut, kToClient, Arguments::kNumber, "recut N",
     "WebSocket: sends it in messages of N bytes"},
    {"frames", FaultAction::kFrames, kToClient, Arguments::kNumber, "frames N",
     "WebSocket: sends one message in frames of N bytes"},
    {"replace", FaultAction::kReplace, kToClient, Arguments::kBytes, "replace HEX",
     "sends another packet instead, sealed like it"},
    {"plain", FaultAction::kPlain, kToClient, Arguments::kNone, "plain", "sends it unsealed"},
    {"ignore", FaultAction::kIgnore, kFromClient, Arguments::kNone, "ignore", "ignores the packet"},
    {"cut", FaultAction::kCut, kToClient | kFromClient | kStream, Arguments::kNumber, "cut [N]",
     "ends the connection after N bytes of it"},
    {"reset", FaultAction::kReset, kToClient | kFromClient | kAccepting | kStream, Arguments::kNone,
     "reset", "resets the connection"},
    {"deaf", FaultAction::kDeaf, kToClient | kFromClient | kAccepting, Arguments::kNone, "deaf",
     "reads nothing more from the connection"},
    {"refuse", FaultAction::kRefuse, kAccepting, Arguments::kNone, "refuse",
     "closes the connection at once"},
    {"http", FaultAction::kHttp, kAccepting, Arguments::kNumber, "http STATUS",
     "WebSocket: answers the upgrade with this status"},
};

unsigned PlaceBit(FaultPlace place) {
    switch (place) {
        case FaultPlace::kAccept:
            return kAccepting;
        case FaultPlace::kOut:
            return kToClient;
        case FaultPlace::kIn:
            return kFromClient;
        case FaultPlace::kBytes:
            return kStream;
    }
    return 0;
}

const ActionRow& FindAction(std::string_view name) {
    for (const ActionRow& row : kActions) {
        if (name == row.name) return row;
    }
    throw UsageError("unknown fault \"" + std::string(name) + "\"");
}

bool StartsWithNumber(std::string_view rest) {
    return !rest.empty() && rest[0] >= '0' && rest[0] <= '9';
}

void TakeArguments(const ActionRow& row, std::string_view rest, FaultRule* rule) {
    switch (row.arguments) {
        case Arguments::kNone:
            break;
        case Arguments::kNumber:
            // "cut" alone: before its first byte.
            if (!rest.empty() || rule->action != FaultAction::kCut) {
                rule->a = TakeNumber(&rest, row.usage);
            }
            break;
        case Arguments::kNumberAndMore:
            rule->a = TakeNumber(&rest, row.usage);
            if (!rest.empty()) rule->b = TakeNumber(&rest, row.usage);
            break;
        case Arguments::kNumberAndBytes:
            rule->a = TakeNumber(&rest, row.usage);
            rule->bytes = TakeHex(&rest);
            break;
        case Arguments::kBytes:
            rule->bytes = TakeHex(&rest);
            break;
        case Arguments::kText:
            rule->bytes.assign(rest.begin(), rest.end());
            return;
    }
    if (!rest.empty()) throw UsageError("\"" + std::string(rest) + "\" after " + row.usage);
}

void CheckArguments(const FaultRule& rule) {
    const bool cuts = rule.action == FaultAction::kSplit || rule.action == FaultAction::kRecut ||
                      rule.action == FaultAction::kFrames;
    if (cuts && rule.a == 0) throw UsageError("pieces of 0 bytes");
    if (rule.action == FaultAction::kReplace &&
        (rule.bytes.size() < kHeaderSize || PacketLength(rule.bytes) != rule.bytes.size())) {
        throw UsageError("replace: no whole packet");
    }
    if (rule.action == FaultAction::kTruncate && rule.a < kHeaderSize) {
        throw UsageError("truncate: a packet has at least 8 bytes");
    }
}

// "packet 3", "packet *", "NHS2", "CRES 2", "CRES *"
void TakePacket(std::string_view word, std::string_view* rest, FaultRule* rule) {
    if (word != "packet") rule->type = TakeType(&word);
    rule->number = 1;
    if (StartsWithNumber(*rest)) {
        rule->number = TakeNumber(rest, "a number");
    } else if (rest->starts_with('*')) {
        TakeWord(rest);
        rule->number.reset();
    }
}

void TakePlace(std::string_view* rest, FaultRule* rule) {
    std::string_view word = TakeWord(rest);
    if (word == "accept") {
        rule->place = FaultPlace::kAccept;
        return;
    }
    if (word == "bytes") {
        rule->place = FaultPlace::kBytes;
        rule->number = TakeNumber(rest, "a number of bytes");
        return;
    }
    rule->place = word == "in" ? FaultPlace::kIn : FaultPlace::kOut;
    if (word == "in") word = TakeWord(rest);
    TakePacket(word, rest, rule);
}

FaultRule ReadRule(std::string_view text) {
    FaultRule rule{};
    rule.text = text;
    std::string_view rest = text;
    if (rest.starts_with("once ")) {
        TakeWord(&rest);
        rule.times_left = 1;
    } else if (rest.starts_with("times ")) {
        TakeWord(&rest);
        rule.times_left = TakeNumber(&rest, "a number");
    }
    TakePlace(&rest, &rule);
    const ActionRow& row = FindAction(TakeWord(&rest));
    if ((row.places & PlaceBit(rule.place)) == 0) {
        throw UsageError(std::string(row.name) + " cannot happen there");
    }
    rule.action = row.action;
    TakeArguments(row, rest, &rule);
    CheckArguments(rule);
    return rule;
}

std::string_view TrimEnd(std::string_view text) {
    const std::size_t end = text.find_last_not_of(" \n");
    return text.substr(0, end == std::string_view::npos ? 0 : end + 1);
}

}  // namespace

FaultCounter::Numbers FaultCounter::Next(FaultPlace place, std::uint32_t type) {
    return {++counts_[{place, 0}], ++counts_[{place, type}]};
}

void FaultScript::Add(std::string_view text) {
    std::list<FaultRule> added;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(';'), text.size());
        const std::string_view part = TrimEnd(SkipBlanks(text.substr(0, end)));
        if (!part.empty()) added.push_back(ReadRule(part));
        text = text.substr(std::min(end + 1, text.size()));
    }
    rules_.splice(rules_.end(), added);
}

std::string FaultScript::Describe() const {
    std::string text;
    for (const FaultRule& rule : rules_)
        text += (text.empty() ? "" : "; ") + rule.text;
    return text;
}

void FaultScript::UseUp(FaultRule* rule) {
    if (!rule->times_left || --*rule->times_left != 0) return;
    rules_.remove_if([rule](const FaultRule& other) { return &other == rule; });
}

std::vector<FaultRule> FaultScript::Take(FaultPlace place, std::uint32_t type,
                                         const FaultCounter::Numbers& numbers) {
    std::vector<FaultRule> found;
    for (auto next = rules_.begin(); next != rules_.end();) {
        FaultRule& rule = *next++;
        if (rule.place != place || (rule.type && *rule.type != type)) continue;
        if (rule.number && *rule.number != (rule.type ? numbers.of_type : numbers.of_all)) continue;
        found.push_back(rule);
        UseUp(&rule);
    }
    return found;
}

std::vector<FaultRule> FaultScript::TakeForConnection() { return Take(FaultPlace::kAccept, 0, {}); }

FaultRule* FaultScript::StreamRule() {
    const auto found = std::find_if(rules_.begin(), rules_.end(), [](const FaultRule& rule) {
        return rule.place == FaultPlace::kBytes;
    });
    return found == rules_.end() ? nullptr : &*found;
}

std::string FaultScript::Help() {
    std::string text =
        "Faults: \"[once|times N] WHERE WHAT\", separated by \";\". WHERE: accept, bytes N\n"
        "(after N bytes to the client), packet N or TYPE N to the client, in packet N or in TYPE "
        "N\n"
        "from it. Each connection counts from 1; without N the first, * all. WHAT:\n";
    for (const ActionRow& row : kActions) {
        std::string usage = std::string("  ") + row.usage;
        usage.resize(std::max<std::size_t>(usage.size() + 2, 20), ' ');
        text += usage + row.purpose + "\n";
    }
    return text;
}

}  // namespace brennix
