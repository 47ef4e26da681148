#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

#include "console/failure.h"
#include "options/command_set.h"
#include "options/link_options.h"
#include "uds/services.h"

namespace dpdu {
namespace {

constexpr char kRequestFooter[] = R"(
The request's bytes are 22F190, 22 F1 90, 22:F1:90 or 0x22 0xF1 0x90, in one argument or
several; - reads them from standard input.

The answer of a single control unit is printed as hexadecimal bytes only, for scripts; with
--decode, and always on a terminal, a second line names service, sub-function, identifiers
with text, and negative response. Several control units are asked one after the other or,
with --functional, all at once; each has a row that ends with the same.

Without --expect, the positive and the negative response to the request's service are
expected. A pattern may be followed by a slash and a mask of the same length with the bits
to compare (default: all). Responses that match no pattern are not delivered.

--p2 sets CP_P2Max, which is in microseconds, to this number of milliseconds. How long a
library waits depends on the library; Tarvik's waits for half of it, plus half a second.

Examples:
  dpdu request 22F190
  dpdu request 22 F1 87 --ecu 7E1:7E9
  echo 22:F1:90 | dpdu request -
  dpdu request 22F190 --decode
  dpdu request 22F190 --ecu 7E0:7E8 --ecu 7E1:7E9
  dpdu request 22F190 --functional 7DF --ecu 7E0:7E8 --ecu 7E1:7E9 --ecu 7E2:7EA
  dpdu request 1003 --ecu 18DA10F1:18DAF110 --p2 2000
  dpdu request 22F190 --expect 62F190 --expect-negative 7F22/FFFF
  dpdu request 2EF15A01 --param CP_P2Star=10000000 --timeout 120)";

constexpr char kFunctionalFooter[] = R"(
Sends one request to all control units; each has a row with its answer, the time that it
took by the library's time stamps, and what the answer means. Tarvik's dongle delivers all
answers together when the last one has arrived or the time is up, so TIME is not measurable
then, and a line says so. --each-time sends the request once more to each control unit that
has answered, one after the other, and shows the time of that answer.

UNITS is a list such as 7E0:7E8,7E1:7E9. The response identifier may be omitted if it is
eight above the request's, or 18DAyyxx for 18DAxxyy. 7E0-7E7 is a range. A file contains
one such list per line, optionally followed by a name; # begins a comment.

Examples:
  dpdu functional 22F187 --units 7E0,7E1,713:77D
  dpdu functional 22 F1 90 --units 7E0-7E7 --any
  dpdu functional 22F187 --units 7E0-7E7 --any --each-time
  dpdu functional 22F195 --file car.txt --json
  dpdu functional 3E00 --id 18DB33F1 --units 18DA10F1-18DA1FF1 --any)";

constexpr char kVinFooter[] = R"(
Examples:
  dpdu vin
  dpdu vin --ecu 7E0:7E8 --ecu 7E1:7E9 --json)";

constexpr char kDtcFooter[] = R"(
Shows each trouble code with its failure type (P0301-00), its status byte and the names of
the bits set in it.

Examples:
  dpdu dtc
  dpdu dtc --ecu 7E0:7E8 --ecu 7E1:7E9
  dpdu dtc --mask 08 --json           only confirmed trouble codes)";

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

struct RequestTexts {
    std::vector<std::string> request_words;
    std::vector<std::string> ecus;
    std::string functional;
    std::vector<std::string> expect;
    std::vector<std::string> expect_negative;
    bool decode = false;
    LinkTexts link;
};

RequestOptions ParseRequest(const RequestTexts& texts) {
    RequestOptions options;
    options.request = ParseWords(texts.request_words, "the request");
    options.ecus = ParseEcus(texts.ecus);
    for (const std::string& text : texts.expect) {
        options.expected.push_back(ParseExpected(text, false));
    }
    for (const std::string& text : texts.expect_negative) {
        options.expected.push_back(ParseExpected(text, true));
    }
    options.decode = texts.decode;
    options.link = ParseLink(texts.link);
    if (!texts.functional.empty()) {
        options.functional_id = RequireCanId(texts.functional);
        RefuseEqualResponseIds(options.ecus);
    }
    return options;
}

void AddRequest(CommandSet* commands) {
    const auto texts = std::make_shared<RequestTexts>();
    CLI::App* command = commands->Add(
        {"request", "send a UDS request and show the answers", kRequestFooter},
        [texts](auto common) {
            const RequestOptions options = ParseRequest(*texts);
            return [=](Output* output) { return RunRequest(common, options, output); };
        });
    command->add_option("bytes", texts->request_words, "the request in hexadecimal, or -")
        ->required();
    command
        ->add_option("--functional", texts->functional,
                     "ask all control units at once on this CAN identifier")
        ->type_name("ID");
    AddRepeatable(command, "--expect", &texts->expect, "expected positive response")
        ->type_name("PATTERN[/MASK]");
    AddRepeatable(command, "--expect-negative", &texts->expect_negative,
                  "expected negative response")
        ->type_name("PATTERN[/MASK]");
    command->add_flag("--decode", texts->decode,
                      "also show in words what the answer of a single control unit says");
    AddEcuOption(command, &texts->ecus);
    AddTimingOptions(command, &texts->link);
}

struct FunctionalTexts {
    std::vector<std::string> request_words;
    std::string id = "7DF";
    std::vector<std::string> units;
    std::vector<std::string> files;
    bool one_is_enough = false;
    bool asks_each = false;
    LinkTexts link;
};

void Append(std::vector<NamedUnit> more, std::vector<NamedUnit>* units) {
    units->insert(units->end(), more.begin(), more.end());
}

std::vector<NamedUnit> ParseAllUnits(const FunctionalTexts& texts) {
    std::vector<NamedUnit> units;
    for (const std::string& text : texts.units)
        Append(ParseUnits(text), &units);
    for (const std::string& path : texts.files)
        Append(ReadUnitFile(path), &units);
    if (units.empty()) throw UsageError("name control units with --units or --file");
    std::vector<EcuAddress> addresses;
    for (const NamedUnit& unit : units)
        addresses.push_back(unit.address);
    RefuseEqualResponseIds(addresses);
    return units;
}

// A request that is sent twice must not change anything.
void RefuseUnlessItReads(const Bytes& request) {
    constexpr std::uint8_t kReading[] = {0x01, 0x02, 0x03, 0x06, 0x07, 0x09, 0x0A,  // OBD
                                         0x19, 0x22, 0x23, 0x24, 0x3E};
    if (std::find(std::begin(kReading), std::end(kReading), request.front()) != std::end(kReading))
        return;
    throw UsageError("--each-time sends the request twice, so it is only for services that read; " +
                     ServiceName(request.front()) + " does more");
}

void AddFunctional(CommandSet* commands) {
    const auto texts = std::make_shared<FunctionalTexts>();
    CLI::App* command = commands->Add(
        {"functional", "ask many control units at once", kFunctionalFooter}, [texts](auto common) {
            FunctionalOptions options;
            options.request = ParseWords(texts->request_words, "the request");
            options.units = ParseAllUnits(*texts);
            options.functional_id = RequireCanId(texts->id);
            options.one_is_enough = texts->one_is_enough;
            options.asks_each = texts->asks_each;
            if (options.asks_each) RefuseUnlessItReads(options.request);
            options.link = ParseLink(texts->link);
            return [=](Output* output) { return RunFunctional(common, options, output); };
        });
    command->add_option("bytes", texts->request_words, "the request in hexadecimal, or -")
        ->required();
    command->add_option("--id", texts->id, "CAN identifier of the request (default: 7DF)")
        ->type_name("ID");
    AddRepeatable(command, "--units", &texts->units, "control units that may answer")
        ->type_name("UNITS");
    AddRepeatable(command, "--file", &texts->files, "file with a list of such control units")
        ->type_name("FILE");
    command->add_flag("--any", texts->one_is_enough,
                      "one positive answer is a success (default: all of them)");
    command->add_flag("--each-time", texts->asks_each,
                      "also ask each that answered alone, to measure its time");
    AddTimingOptions(command, &texts->link);
}

struct VinTexts {
    std::vector<std::string> ecus;
    LinkTexts link;
};

void AddVin(CommandSet* commands) {
    const auto texts = std::make_shared<VinTexts>();
    CLI::App* command = commands->Add(
        {"vin", "read the vehicle identification number", kVinFooter}, [texts](auto common) {
            const VinOptions options{ParseEcus(texts->ecus), ParseLink(texts->link)};
            return [=](Output* output) { return RunVin(common, options, output); };
        });
    AddEcuOption(command, &texts->ecus);
    AddTimingOptions(command, &texts->link);
}

struct DtcTexts {
    std::vector<std::string> ecus;
    std::string status_mask = "FF";
    LinkTexts link;
};

DtcOptions ParseDtc(const DtcTexts& texts) {
    const std::optional<std::uint32_t> mask = ParseHexNumber(texts.status_mask);
    if (!mask || *mask > 0xFF) {
        throw UsageError("'" + texts.status_mask + "' is not a status mask such as 08");
    }
    return {ParseEcus(texts.ecus), static_cast<std::uint8_t>(*mask), ParseLink(texts.link)};
}

void AddDtc(CommandSet* commands) {
    const auto texts = std::make_shared<DtcTexts>();
    CLI::App* command =
        commands->Add({"dtc", "read the trouble codes", kDtcFooter}, [texts](auto common) {
            const DtcOptions options = ParseDtc(*texts);
            return [=](Output* output) { return RunDtc(common, options, output); };
        });
    command
        ->add_option("--mask", texts->status_mask,
                     "status bits of the trouble codes to read (default: FF)")
        ->type_name("HEX");
    AddEcuOption(command, &texts->ecus);
    AddTimingOptions(command, &texts->link);
}

}  // namespace

void AddRequestCommands(CommandSet* commands) {
    AddRequest(commands);
    AddFunctional(commands);
    AddVin(commands);
    AddDtc(commands);
}

}  // namespace dpdu
