#include "command_line.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <set>
#include <sstream>
#include <utility>

#include "failure.h"

namespace dpdu {
namespace {

constexpr char kDescription[] =
    "dpdu: diagnostic requests through a D-PDU API library (ISO 22900-2)";

// At the end of every help text.
constexpr char kExitCodes[] = R"(

Exit codes:
  0  everything went well
  1  the library, the module or the vehicle reported a failure, or a control unit
     did not answer positively
  2  the command line makes no sense)";

constexpr char kMainFooter[] = R"(Environment:
  DPDU_LIBRARY  the library to use when --library is not given

Examples:
  dpdu modules                        which dongles there are
  dpdu vin                            the VIN, from control unit 7E0:7E8
  dpdu request 22F190                 any UDS request
  dpdu dtc --json                     trouble codes as JSON
  dpdu request --help                 the options of a command, with examples)";

constexpr char kModulesFooter[] = R"(
Examples:
  dpdu modules
  dpdu modules --wait 10              wait up to ten seconds for a dongle
  dpdu modules --module USB --json    those whose name contains USB, as JSON)";

constexpr char kVersionFooter[] = R"(
Examples:
  dpdu version
  dpdu version --json
  dpdu version --library ./other_vendor.so)";

constexpr char kRequestFooter[] = R"(
A single control unit's answer is printed as bare hexadecimal bytes. Several control
units are asked one after the other or, with --functional, all at once; each has a row.

Without --expect, the positive and the negative response to the request's service are
expected. A pattern may be followed by a slash and a mask of the same length that tells
which bits count (default: all). Responses that match nothing are not delivered.

--p2 sets CP_P2Max, which is in microseconds, to that many milliseconds. How long the
library waits is its own affair; Tarvik's waits for half of it, plus half a second.

Examples:
  dpdu request 22F190
  dpdu request 22 F1 87 --ecu 7E1:7E9
  dpdu request 22F190 --ecu 7E0:7E8 --ecu 7E1:7E9
  dpdu request 22F190 --functional 7DF --ecu 7E0:7E8 --ecu 7E1:7E9 --ecu 7E2:7EA
  dpdu request 1003 --ecu 18DA10F1:18DAF110 --p2 2000
  dpdu request 22F190 --expect 62F190 --expect-negative 7F22/FFFF
  dpdu request 2EF15A01 --param CP_P2Star=10000000 --timeout 120)";

constexpr char kVinFooter[] = R"(
Examples:
  dpdu vin
  dpdu vin --ecu 7E0:7E8 --ecu 7E1:7E9 --json)";

constexpr char kDtcFooter[] = R"(
Each trouble code is shown with its failure type (P0301-00), its status byte and the
names of the bits set in it.

Examples:
  dpdu dtc
  dpdu dtc --ecu 7E0:7E8 --ecu 7E1:7E9
  dpdu dtc --mask 08 --json           confirmed trouble codes only)";

constexpr char kComParamFooter[] = R"(
Values live in the library for as long as the program runs: 'set' shows what the library
makes of a value. To make a request with other values use 'dpdu request --param'.

Values: numbers 1000 or 0x3E8; byte fields 3E80; long fields 500000,250000; struct fields
one group of numbers for each entry, as 1:0:50:1:244,2:0:50:1:244.

Examples:
  dpdu comparam list
  dpdu comparam list --filter TesterPresent
  dpdu comparam get CP_P2Max CP_P2Star
  dpdu comparam set CP_P2Max=150000 CP_TesterPresentMessage=3E80 --json)";

// Everything that the options write to; the options of all commands live side by side.
struct Parsed {
    CommonOptions common;
    LinkOptions link;
    std::vector<std::string> ecus;
    std::vector<std::string> request_words;
    std::string functional;
    std::vector<std::string> expect;
    std::vector<std::string> expect_negative;
    std::vector<std::string> params;
    std::string status_mask = "FF";
    std::vector<std::string> names;
    std::vector<std::string> assignments;
    std::string filter;
    std::uint32_t p2_star_ms = 0;         // 0: not given
    std::uint32_t tester_present_ms = 0;  // likewise
    std::uint32_t timeout_seconds = 60;
};

constexpr std::uint32_t kLargestMs = 4'000'000;  // still fits 32 bits in microseconds
constexpr std::uint32_t kLargestSeconds = 86'400;

void AddCommonOptions(CLI::App* command, CommonOptions* common) {
    const std::string group = "Common options";
    command
        ->add_option("--library", common->library,
                     "D-PDU library to load (default: DPDU_LIBRARY, else Tarvik's beside dpdu)")
        ->type_name("PATH")
        ->group(group);
    command
        ->add_option("--library-options", common->option_string,
                     "option string handed to the library")
        ->type_name("TEXT")
        ->group(group);
    command
        ->add_option("--module", common->module,
                     "use the module whose name or interface contains this text")
        ->type_name("TEXT")
        ->group(group);
    command
        ->add_option("--wait", common->wait_seconds, "how long to look for a module (default: 3)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, static_cast<double>(kLargestSeconds)))
        ->group(group);
    command->add_flag("--json", common->as_json, "print one JSON document")->group(group);
    command
        ->add_flag("--verbose", common->is_verbose,
                   "show what the library itself prints, on standard error")
        ->group(group);
}

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

void AddLinkOptions(CLI::App* command, Parsed* parsed) {
    command
        ->add_option("--ecu", parsed->ecus,
                     "control unit by its CAN identifiers, repeatable (default: 7E0:7E8)")
        ->type_name("REQUEST:RESPONSE")
        ->take_all()
        ->allow_extra_args(false);
    command->add_option("--p2", parsed->link.p2_ms, "CP_P2Max in milliseconds (default: 1000)")
        ->type_name("MS")
        ->check(CLI::Range(1U, kLargestMs));
    command->add_option("--p2-star", parsed->p2_star_ms, "CP_P2Star in milliseconds")
        ->type_name("MS")
        ->check(CLI::Range(1U, kLargestMs));
    command
        ->add_option("--tester-present", parsed->tester_present_ms,
                     "send tester present (3E80) this often meanwhile (default: never)")
        ->type_name("MS")
        ->check(CLI::Range(1U, kLargestMs));
    command
        ->add_option("--timeout", parsed->timeout_seconds,
                     "give up on a request after this time (default: 60)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, kLargestSeconds));
    command->add_option("--param", parsed->params, "set a ComParam before, repeatable")
        ->type_name("NAME=VALUE")
        ->take_all()
        ->allow_extra_args(false);
    AddProtocolOptions(command, &parsed->link);
}

std::pair<std::string, std::string> ParseAssignment(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw UsageError("'" + text + "' is not NAME=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
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

Bytes ParseBytes(const std::string& text, const std::string& what) {
    const std::optional<Bytes> bytes = ParseHex(text);
    if (!bytes || bytes->empty()) {
        throw UsageError(what + " '" + text + "' is not a row of hexadecimal bytes such as 22F190");
    }
    return *bytes;
}

ExpectedResponse ParseExpected(const std::string& text, bool is_negative) {
    const std::size_t slash = text.find('/');
    ExpectedResponse expected;
    expected.is_negative = is_negative;
    expected.pattern = ParseBytes(text.substr(0, slash), "the expected response");
    expected.mask = slash == std::string::npos ? Bytes(expected.pattern.size(), 0xFF)
                                               : ParseBytes(text.substr(slash + 1), "the mask");
    if (expected.mask.size() != expected.pattern.size()) {
        throw UsageError("in '" + text + "' mask and pattern have different lengths");
    }
    return expected;
}

LinkOptions ParseLink(const Parsed& parsed) {
    LinkOptions link = parsed.link;
    if (parsed.p2_star_ms > 0) link.p2_star_ms = parsed.p2_star_ms;
    if (parsed.tester_present_ms > 0) link.tester_present_ms = parsed.tester_present_ms;
    link.limit = std::chrono::seconds(parsed.timeout_seconds);
    link.params = ParseAssignments(parsed.params);
    return link;
}

// The answers to a functional request are told apart by their identifiers alone.
void RefuseEqualResponseIds(const std::vector<EcuAddress>& ecus) {
    std::set<std::uint32_t> seen;
    for (const EcuAddress& ecu : ecus) {
        if (seen.insert(ecu.response_id).second) continue;
        throw UsageError("two control units answer on " + CanIdText(ecu.response_id) +
                         "; a functional request cannot tell them apart");
    }
}

RequestOptions ParseRequest(const Parsed& parsed) {
    RequestOptions options;
    std::string digits;
    for (const std::string& word : parsed.request_words) {
        if (!digits.empty()) digits += " ";
        digits += word;
    }
    options.request = ParseBytes(digits, "the request");
    options.ecus = ParseEcus(parsed.ecus);
    for (const std::string& text : parsed.expect) {
        options.expected.push_back(ParseExpected(text, false));
    }
    for (const std::string& text : parsed.expect_negative) {
        options.expected.push_back(ParseExpected(text, true));
    }
    options.link = ParseLink(parsed);
    if (!parsed.functional.empty()) {
        options.functional_id = ParseCanId(parsed.functional);
        if (!options.functional_id) {
            throw UsageError("'" + parsed.functional + "' is not a CAN identifier such as 7DF");
        }
        RefuseEqualResponseIds(options.ecus);
    }
    return options;
}

DtcOptions ParseDtc(const Parsed& parsed) {
    const std::optional<std::uint32_t> mask = ParseHexNumber(parsed.status_mask);
    if (!mask || *mask > 0xFF) {
        throw UsageError("'" + parsed.status_mask + "' is not a status mask such as 08");
    }
    return {ParseEcus(parsed.ecus), static_cast<std::uint8_t>(*mask), ParseLink(parsed)};
}

ComParamOptions ParseComParam(const Parsed& parsed) {
    return {parsed.names, ParseAssignments(parsed.assignments), parsed.filter, parsed.link};
}

// The parser with one command for each Run function. After parsing, `run` holds what to do.
class Parser {
public:
    Parser() {
        app_.require_subcommand(1);
        app_.set_version_flag("--version", "dpdu " DPDU_VERSION);
        app_.footer(std::string(kMainFooter) + kExitCodes);
        app_.fallthrough();
        AddCommonOptions(&app_, &parsed_.common);
        AddModules();
        AddVersion();
        AddRequest();
        AddVin();
        AddDtc();
        AddComParam();
    }

    Invocation Parse(int count, const char* const* arguments) {
        Invocation invocation;
        try {
            app_.parse(count, arguments);
            invocation.common = parsed_.common;
            UseEnvironment(&invocation.common);
            invocation.run = prepare_(invocation.common);
        } catch (const CLI::Success& success) {
            invocation.text = TextFor(success);
        } catch (const CLI::RequiredError& error) {
            invocation.error = WhatIsMissing(error) + Advice();
        } catch (const CLI::ParseError& error) {
            invocation.error = OnOneLine(error.what()) + Advice();
        } catch (const UsageError& error) {
            invocation.error = error.what() + Advice();
        }
        return invocation;
    }

private:
    using Run = std::function<bool(Output*)>;
    using Prepare = std::function<Run(const CommonOptions&)>;

    CLI::App* Add(CLI::App* parent, const char* name, const char* description, const char* footer,
                  Prepare prepare) {
        CLI::App* command = parent->add_subcommand(name, description);
        command->footer(std::string(footer) + kExitCodes);
        command->callback([this, prepare = std::move(prepare)] { prepare_ = prepare; });
        return command;
    }

    void AddModules() {
        CLI::App* command =
            Add(&app_, "modules", "list the modules (dongles)", kModulesFooter, [](auto common) {
                return [common](Output* output) { return RunModules(common, output); };
            });
        AddCommonOptions(command, &parsed_.common);
    }

    void AddVersion() {
        CLI::App* command =
            Add(&app_, "version", "show the versions of library, hardware and firmware",
                kVersionFooter, [](auto common) {
                    return [common](Output* output) { return RunVersion(common, output); };
                });
        AddCommonOptions(command, &parsed_.common);
    }

    void AddRequest() {
        CLI::App* command =
            Add(&app_, "request", "send a UDS request and show the answers", kRequestFooter,
                [this](auto common) {
                    const RequestOptions options = ParseRequest(parsed_);
                    return [=](Output* output) { return RunRequest(common, options, output); };
                });
        command->add_option("bytes", parsed_.request_words, "the request in hexadecimal")
            ->required();
        command
            ->add_option("--functional", parsed_.functional,
                         "ask all control units at once on this CAN identifier")
            ->type_name("ID");
        command->add_option("--expect", parsed_.expect, "expected positive response, repeatable")
            ->type_name("PATTERN[/MASK]")
            ->take_all()
            ->allow_extra_args(false);
        command
            ->add_option("--expect-negative", parsed_.expect_negative,
                         "expected negative response, repeatable")
            ->type_name("PATTERN[/MASK]")
            ->take_all()
            ->allow_extra_args(false);
        AddLinkOptions(command, &parsed_);
        AddCommonOptions(command, &parsed_.common);
    }

    void AddVin() {
        CLI::App* command =
            Add(&app_, "vin", "read the vehicle identification number", kVinFooter,
                [this](auto common) {
                    const VinOptions options{ParseEcus(parsed_.ecus), ParseLink(parsed_)};
                    return [=](Output* output) { return RunVin(common, options, output); };
                });
        AddLinkOptions(command, &parsed_);
        AddCommonOptions(command, &parsed_.common);
    }

    void AddDtc() {
        CLI::App* command =
            Add(&app_, "dtc", "read the trouble codes", kDtcFooter, [this](auto common) {
                const DtcOptions options = ParseDtc(parsed_);
                return [=](Output* output) { return RunDtc(common, options, output); };
            });
        command
            ->add_option("--mask", parsed_.status_mask,
                         "status bits of the trouble codes to read (default: FF)")
            ->type_name("HEX");
        AddLinkOptions(command, &parsed_);
        AddCommonOptions(command, &parsed_.common);
    }

    void AddComParam() {
        CLI::App* command = app_.add_subcommand("comparam", "show and set the library's ComParams");
        command->require_subcommand(1);
        command->footer(std::string(kComParamFooter) + kExitCodes);
        AddComParamAction(command, "get", "show the values of ComParams", RunComParamGet)
            ->add_option("names", parsed_.names, "names of ComParams")
            ->required();
        AddComParamAction(command, "set", "set ComParams and show what became of them",
                          RunComParamSet)
            ->add_option("assignments", parsed_.assignments, "NAME=VALUE")
            ->required();
        AddComParamAction(command, "list", "show all ComParams that the library knows",
                          RunComParamList)
            ->add_option("--filter", parsed_.filter, "only names that contain this text")
            ->type_name("TEXT");
    }

    using ComParamCommand = bool (*)(const CommonOptions&, const ComParamOptions&, Output*);

    CLI::App* AddComParamAction(CLI::App* parent, const char* name, const char* description,
                                ComParamCommand run_command) {
        CLI::App* command =
            Add(parent, name, description, kComParamFooter, [this, run_command](auto common) {
                const ComParamOptions options = ParseComParam(parsed_);
                return [=](Output* output) { return run_command(common, options, output); };
            });
        AddProtocolOptions(command, &parsed_.link);
        AddCommonOptions(command, &parsed_.common);
        return command;
    }

    static void UseEnvironment(CommonOptions* common) {
        const char* library = std::getenv("DPDU_LIBRARY");
        if (common->library.empty() && library) common->library = library;
    }

    // Help or version, which the parser reports like errors.
    std::string TextFor(const CLI::Success& success) {
        std::ostringstream text;
        app_.exit(success, text, text);
        return text.str().ends_with('\n') ? text.str() : text.str() + "\n";
    }

    // The parser complains of a missing command where an unknown one was given.
    std::string WhatIsMissing(const CLI::RequiredError& error) const {
        const CLI::App* last = LastCommand();
        if (last->get_subcommands(nullptr).empty()) return OnOneLine(error.what());
        const std::vector<std::string> extras = app_.remaining(true);
        return extras.empty() ? "name a command" : "unknown command '" + extras.front() + "'";
    }

    const CLI::App* LastCommand() const {
        const CLI::App* app = &app_;
        while (!app->get_subcommands().empty())
            app = app->get_subcommands().front();
        return app;
    }

    // Where to read on: the help of the command that was named, if one was.
    std::string Advice() const {
        std::string command;
        const CLI::App* app = &app_;
        while (!app->get_subcommands().empty()) {
            app = app->get_subcommands().front();
            command += " " + app->get_name();
        }
        return "; see dpdu" + command + " --help";
    }

    CLI::App app_{kDescription, "dpdu"};
    Parsed parsed_;
    Prepare prepare_;
};

}  // namespace

Invocation ParseCommandLine(int count, const char* const* arguments) {
    return Parser().Parse(count, arguments);
}

}  // namespace dpdu
