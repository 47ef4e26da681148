// Options for a link and its control units, and the parsing of their values.

#ifndef TOOLS_DPDU_OPTIONS_LINK_OPTIONS_H
#define TOOLS_DPDU_OPTIONS_LINK_OPTIONS_H

#include <string>
#include <utility>
#include <vector>

#include "options/command_set.h"

namespace dpdu {

// The user's input, written by the options.
struct LinkTexts {
    LinkOptions link;
    std::vector<std::string> params;
    std::uint32_t p2_star_ms = 0;         // 0: not given
    std::uint32_t tester_present_ms = 0;  // likewise
    std::uint32_t timeout_seconds = 60;
};

void AddProtocolOptions(CLI::App* command, LinkOptions* link);
// Timing, ComParams and protocol: options of every command that sends requests.
void AddTimingOptions(CLI::App* command, LinkTexts* texts);
// As above without tester present.
void AddQuietTimingOptions(CLI::App* command, LinkTexts* texts);
void AddParamOption(CLI::App* command, std::vector<std::string>* params);
void AddEcuOption(CLI::App* command, std::vector<std::string>* ecus);

// All of these throw UsageError for invalid values.
LinkOptions ParseLink(const LinkTexts& texts);
std::vector<std::pair<std::string, std::string>> ParseAssignments(
    const std::vector<std::string>& texts);
// Returns the default control unit if `texts` is empty.
std::vector<EcuAddress> ParseEcus(const std::vector<std::string>& texts);
std::uint32_t RequireCanId(const std::string& text);
// `what` names the bytes in the message: "the request".
Bytes ParseBytes(const std::string& text, const std::string& what);
// The same for bytes that the shell has split into words; "-" alone reads standard input.
Bytes ParseWords(const std::vector<std::string>& words, const std::string& what);

// "startcomm" or "sendrecv": how a library sends frames on a raw link.
T_PDU_COPT ParseSendPrimitive(const std::string& text);

// The answers to a functional request are told apart by their identifiers alone.
void RefuseEqualResponseIds(const std::vector<EcuAddress>& ecus);

}  // namespace dpdu

#endif  // TOOLS_DPDU_OPTIONS_LINK_OPTIONS_H
