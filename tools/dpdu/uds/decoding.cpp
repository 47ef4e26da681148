#include "uds/decoding.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "uds/services.h"

namespace dpdu {
namespace {

constexpr std::uint8_t kSessionControl = 0x10;
constexpr std::uint8_t kReadDtcInformation = 0x19;
constexpr std::uint8_t kReadData = 0x22;
constexpr std::uint8_t kReadScaling = 0x24;
constexpr std::uint8_t kWriteData = 0x2E;
constexpr std::uint8_t kControlInputOutput = 0x2F;
constexpr std::uint8_t kRoutineControl = 0x31;
constexpr std::size_t kIdentifierSize = 2;

std::uint16_t Number16(const Bytes& bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

bool HasIdentifier(std::uint8_t service) {
    return service == kReadData || service == kReadScaling || service == kWriteData ||
           service == kControlInputOutput;
}

DataRecord RecordOf(std::uint16_t identifier, Bytes data = {}) {
    const std::string text = TextOfData(data);
    return {identifier, DataIdentifierName(identifier), std::move(data), text};
}

// The identifiers that a request names, in its order.
std::vector<std::uint16_t> IdentifiersIn(const Bytes& request) {
    std::vector<std::uint16_t> identifiers;
    if (request.empty() || !HasIdentifier(request.front())) return identifiers;
    const std::size_t most = request.front() == kReadData ? request.size() : 1 + kIdentifierSize;
    for (std::size_t at = 1; at + kIdentifierSize <= std::min(most, request.size());
         at += kIdentifierSize) {
        identifiers.push_back(Number16(request, at));
    }
    return identifiers;
}

// The only place of the identifier at or after `from`; nullopt if there is none or more than one,
// since data may have the same bytes by chance.
std::optional<std::size_t> OnlyPlace(const Bytes& bytes, std::size_t from,
                                     std::uint16_t identifier) {
    std::optional<std::size_t> place;
    for (std::size_t at = from; at + kIdentifierSize <= bytes.size(); ++at) {
        if (Number16(bytes, at) != identifier) continue;
        if (place) return std::nullopt;
        place = at;
    }
    return place;
}

Bytes Slice(const Bytes& bytes, std::size_t from, std::size_t to) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
            bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

// An answer with the data of several identifiers does not say where each begins. A control unit may
// leave out identifiers that it does not know.
std::vector<DataRecord> SplitRecords(const std::vector<std::uint16_t>& asked, const Bytes& answer) {
    std::vector<DataRecord> records;
    std::size_t begin = 1;
    std::uint16_t identifier = Number16(answer, begin);
    auto next = std::find(asked.begin(), asked.end(), identifier);
    if (next != asked.end()) ++next;
    for (; next != asked.end(); ++next) {
        const std::size_t data = begin + kIdentifierSize;
        const std::optional<std::size_t> end = OnlyPlace(answer, data, *next);
        if (!end) continue;
        records.push_back(RecordOf(identifier, Slice(answer, data, *end)));
        begin = *end;
        identifier = *next;
    }
    records.push_back(RecordOf(identifier, Slice(answer, begin + kIdentifierSize, answer.size())));
    return records;
}

// The number of trouble codes in the positive answer to one of the reports that count or list them.
std::optional<std::size_t> CountTroubleCodes(const Bytes& answer) {
    constexpr std::uint8_t kCounts[] = {0x01, 0x07, 0x11, 0x12};
    constexpr std::uint8_t kLists[] = {0x02, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x13, 0x15};
    constexpr std::size_t kCountAnswer = 6;  // service, report, mask, format, two bytes count
    constexpr std::size_t kListHead = 3;     // service, report, mask
    constexpr std::size_t kEntry = 4;        // trouble code and status
    if (answer.size() < kListHead) return std::nullopt;
    const auto is = [report = answer[1]](std::uint8_t each) { return each == report; };
    if (std::any_of(std::begin(kCounts), std::end(kCounts), is)) {
        if (answer.size() != kCountAnswer) return std::nullopt;
        return Number16(answer, kCountAnswer - 2);
    }
    if (std::none_of(std::begin(kLists), std::end(kLists), is)) return std::nullopt;
    if ((answer.size() - kListHead) % kEntry != 0) return std::nullopt;
    return (answer.size() - kListHead) / kEntry;
}

void DecodeSessionTiming(const Bytes& answer, Decoded* decoded) {
    constexpr std::size_t kTimingAnswer = 6;  // service, session, P2 and P2* with two bytes each
    constexpr std::uint32_t kP2StarUnitMs = 10;
    if (answer.size() < kTimingAnswer) return;
    decoded->p2_ms = Number16(answer, 2);
    decoded->p2_star_ms = Number16(answer, 4) * kP2StarUnitMs;
}

// What request and positive answer have in common. `service` is the request's.
Decoded DecodeHead(std::uint8_t service, const Bytes& message) {
    Decoded decoded;
    decoded.service = ServiceName(service);
    if (message.size() < 2 || !HasSubFunction(service)) return decoded;
    decoded.sub_function = SubFunctionName(service, message[1]);
    if (service == kRoutineControl && message.size() >= 4) decoded.routine = Number16(message, 2);
    return decoded;
}

bool IsAnswerTo(const Bytes& request, std::uint8_t service) {
    return !request.empty() && request.front() == service;
}

std::string WithName(std::uint16_t identifier, const std::string& name) {
    const std::string number = " " + HexNumber(identifier, 4);
    return name.empty() ? number : number + " " + name;
}

}  // namespace

std::string Decoded::Text() const {
    std::string text = service;
    if (!sub_function.empty()) text += " " + sub_function;
    if (routine) text += WithName(*routine, RoutineName(*routine));
    const char* separator = "";
    for (const DataRecord& record : records) {
        text += separator + WithName(record.identifier, record.name);
        if (!record.text.empty()) text += " \"" + record.text + "\"";
        separator = ",";
    }
    if (suppresses_positive_response) text += ", no positive response";
    if (p2_ms) text += ", P2 " + std::to_string(*p2_ms) + " ms";
    if (p2_star_ms) text += ", P2* " + std::to_string(*p2_star_ms) + " ms";
    if (trouble_code_count) {
        text += ", " + std::to_string(*trouble_code_count) + " trouble code" +
                (*trouble_code_count == 1 ? "" : "s");
    }
    if (negative) {
        text += std::string(": negative response ") + NegativeResponseName(negative->code) +
                " (0x" + HexNumber(negative->code, 2) + ")";
    }
    return text;
}

Decoded DecodeRequest(const Bytes& request) {
    if (request.empty()) return {};
    const std::uint8_t service = request.front();
    Decoded decoded = DecodeHead(service, request);
    if (request.size() >= 2 && HasSubFunction(service)) {
        decoded.suppresses_positive_response = (request[1] & kSuppressPositive) != 0;
    }
    for (const std::uint16_t identifier : IdentifiersIn(request))
        decoded.records.push_back(RecordOf(identifier));
    if (service == kWriteData && !decoded.records.empty()) {
        decoded.records.front() = RecordOf(decoded.records.front().identifier,
                                           Slice(request, 1 + kIdentifierSize, request.size()));
    }
    return decoded;
}

Decoded Decode(const Bytes& request, const Bytes& answer) {
    if (answer.empty()) return {};
    if (const std::optional<NegativeResponse> negative = ParseNegativeResponse(answer)) {
        Decoded decoded;
        if (IsAnswerTo(request, negative->service)) {
            decoded = DecodeRequest(request);
            decoded.suppresses_positive_response = false;
        } else {
            decoded.service = ServiceName(negative->service);
        }
        decoded.negative = negative;
        return decoded;
    }
    if (answer.front() < kPositiveOffset) return {};
    const auto service = static_cast<std::uint8_t>(answer.front() - kPositiveOffset);
    Decoded decoded = DecodeHead(service, answer);
    if (HasIdentifier(service) && answer.size() >= 1 + kIdentifierSize) {
        const bool is_known = IsAnswerTo(request, service);
        decoded.records =
            SplitRecords(is_known ? IdentifiersIn(request) : std::vector<std::uint16_t>{}, answer);
    }
    if (service == kSessionControl) DecodeSessionTiming(answer, &decoded);
    if (service == kReadDtcInformation) decoded.trouble_code_count = CountTroubleCodes(answer);
    return decoded;
}

std::string DescribeRequest(const Bytes& request) { return DecodeRequest(request).Text(); }

std::string DescribeAnswer(const Bytes& request, const Bytes& answer) {
    return Decode(request, answer).Text();
}

std::string TextOfData(const Bytes& data) {
    const auto is_padding = [](std::uint8_t byte) {
        return byte == 0x00 || byte == 0xFF || byte == ' ';
    };
    const auto first = std::find_if_not(data.begin(), data.end(), is_padding);
    const auto last = std::find_if_not(data.rbegin(), data.rend(), is_padding).base();
    if (first >= last) return "";
    const bool is_text =
        std::all_of(first, last, [](std::uint8_t byte) { return byte >= ' ' && byte <= '~'; });
    return is_text ? std::string(first, last) : "";
}

Json RecordJson(const DataRecord& record) {
    Json json = {{"identifier", HexNumber(record.identifier, 4)}};
    if (!record.name.empty()) json["name"] = record.name;
    if (!record.data.empty()) json["data"] = HexText(record.data);
    if (!record.text.empty()) json["text"] = record.text;
    return json;
}

Json DecodedJson(const Decoded& decoded) {
    Json json = {{"text", decoded.Text()}, {"service", decoded.service}};
    if (!decoded.sub_function.empty()) json["subFunction"] = decoded.sub_function;
    if (decoded.suppresses_positive_response) json["suppressesPositiveResponse"] = true;
    if (decoded.routine) json["routine"] = HexNumber(*decoded.routine, 4);
    for (const DataRecord& record : decoded.records)
        json["data"].push_back(RecordJson(record));
    if (decoded.trouble_code_count) json["troubleCodeCount"] = *decoded.trouble_code_count;
    if (decoded.p2_ms) json["p2Ms"] = *decoded.p2_ms;
    if (decoded.p2_star_ms) json["p2StarMs"] = *decoded.p2_star_ms;
    if (decoded.negative) {
        json["negativeResponse"] = {{"code", decoded.negative->code},
                                    {"name", NegativeResponseName(decoded.negative->code)}};
    }
    return json;
}

}  // namespace dpdu
