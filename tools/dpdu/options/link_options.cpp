#include "options/link_options.h"

#include <iostream>
#include <set>

#include "console/failure.h"

namespace dpdu {
namespace {

constexpr char kStandardInput[] = "-";

std::pair<std::string, std::string> ParseAssignment(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw UsageError("'" + text + "' is not NAME=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

std::string Shortened(const std::string& text) {
    constexpr std::size_t kMost = 60;
    return text.size() > kMost ? text.substr(0, kMost) + "..." : text;
}

// Much more than the longest request in the widest form.
constexpr std::size_t kMostInput = 65536;

std::string ReadInput(std::istream* stream, const std::string& what) {
    std::string text;
    for (char character; text.size() <= kMostInput && stream->get(character);)
        text += character;
    if (text.size() > kMostInput) {
        throw UsageError(what + " from standard input is longer than 65536 characters");
    }
    return text;
}

}  // namespace

void AddProtocolOptions(CLI::App* command, LinkOptions* link) {
    command
        ->add_option("--protocol", link->protocol,
                     "protocol name (default: " + link->protocol + ")")
        ->type_name("NAME");
    command
        ->add_option("--bus-type", link->bus_type,
                     "bus type name (default: " + link->bus_type + ")")
        ->type_name("NAME");
}

void AddTimingOptions(CLI::App* command, LinkTexts* texts) {
    AddMillisecondsOption(command, "--tester-present", &texts->tester_present_ms,
                          "period of tester present (3E80) during the request (default: never)");
    AddQuietTimingOptions(command, texts);
}

void AddQuietTimingOptions(CLI::App* command, LinkTexts* texts) {
    AddMillisecondsOption(command, "--p2", &texts->link.p2_ms,
                          "CP_P2Max in milliseconds (default: 1000)");
    AddMillisecondsOption(command, "--p2-star", &texts->p2_star_ms, "CP_P2Star in milliseconds");
    command
        ->add_option("--timeout", texts->timeout_seconds, "time limit of a request (default: 60)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, kLargestSeconds).description(""));
    AddParamOption(command, &texts->params);
    AddProtocolOptions(command, &texts->link);
}

void AddParamOption(CLI::App* command, std::vector<std::string>* params) {
    AddRepeatable(command, "--param", params, "set a ComParam first")->type_name("NAME=VALUE");
}

void AddEcuOption(CLI::App* command, std::vector<std::string>* ecus) {
    AddRepeatable(command, "--ecu", ecus, "control unit by its CAN identifiers (default: 7E0:7E8)")
        ->type_name("REQUEST:RESPONSE");
}

LinkOptions ParseLink(const LinkTexts& texts) {
    LinkOptions link = texts.link;
    if (texts.p2_star_ms > 0) link.p2_star_ms = texts.p2_star_ms;
    if (texts.tester_present_ms > 0) link.tester_present_ms = texts.tester_present_ms;
    link.limit = std::chrono::seconds(texts.timeout_seconds);
    link.params = ParseAssignments(texts.params);
    return link;
}

std::vector<std::pair<std::string, std::string>> ParseAssignments(
    const std::vector<std::string>& texts) {
    std::vector<std::pair<std::string, std::string>> assignments;
    assignments.reserve(texts.size());
    for (const std::string& text : texts)
        assignments.push_back(ParseAssignment(text));
    return assignments;
}

std::vector<EcuAddress> ParseEcus(const std::vector<std::string>& texts) {
    if (texts.empty()) return {EcuAddress{}};
    std::vector<EcuAddress> ecus;
    for (const std::string& text : texts) {
        const std::optional<EcuAddress> ecu = ParseEcuAddress(text);
        if (!ecu) {
            throw UsageError("'" + text + "' is not a pair of CAN identifiers such as 7E0:7E8");
        }
        ecus.push_back(*ecu);
    }
    return ecus;
}

std::uint32_t RequireCanId(const std::string& text) {
    const std::optional<std::uint32_t> id = ParseCanId(text);
    if (!id) throw UsageError("'" + text + "' is not a CAN identifier such as 7DF");
    return *id;
}

Bytes ParseBytes(const std::string& text, const std::string& what) {
    const std::optional<Bytes> bytes = ParseHex(text);
    if (!bytes || bytes->empty()) {
        throw UsageError(what + " '" + Shortened(text) + "' is not in one of the forms " +
                         kHexForms);
    }
    return *bytes;
}

Bytes ParseWords(const std::vector<std::string>& words, const std::string& what) {
    if (words.size() == 1 && words.front() == kStandardInput) {
        return ParseBytes(ReadInput(&std::cin, what), what + " from standard input");
    }
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return ParseBytes(text, what);
}

T_PDU_COPT ParseSendPrimitive(const std::string& text) {
    if (text == "startcomm") return PDU_COPT_STARTCOMM;
    if (text == "sendrecv") return PDU_COPT_SENDRECV;
    throw UsageError("'" + text + "' is not a ComPrimitive that sends: startcomm or sendrecv");
}

void RefuseEqualResponseIds(const std::vector<EcuAddress>& ecus) {
    std::set<std::uint32_t> seen;
    for (const EcuAddress& ecu : ecus) {
        if (seen.insert(ecu.response_id).second) continue;
        throw UsageError("two control units answer on " + CanIdText(ecu.response_id) +
                         "; a functional request cannot tell them apart");
    }
}

}  // namespace dpdu
