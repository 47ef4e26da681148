#include "trace/text.h"

#include <algorithm>
#include <cstdio>

#include "uds/answers.h"
#include "uds/ecu_address.h"

namespace dpdu::trace {
namespace {

constexpr std::uint32_t kNothingReceived = 257;
constexpr std::uint32_t kNothingFitting = 259;

std::string NegativeText(const Request& request) {
    const Payload* answer = request.Answer();
    if (answer == nullptr) return "negative responses";
    const auto negative = ParseNegativeResponse(answer->bytes);
    return negative ? NegativeResponseText(*negative) : "a negative response before";
}

std::string AnsweredText(const Request& request) {
    if (request.HasNegativeAnswer()) return NegativeText(request);
    if (request.results == 0) return "no answer";
    return request.results == 1 ? "answered" : std::to_string(request.results) + " answers";
}

// "123#DEADBEEF", from the payload passed by the application.
std::string RawFrameText(const Payload& payload) {
    const RawFrame frame = RawFrameOf(payload);
    return CanIdText(frame.can_id) + "#" + HexText(frame.data);
}

}  // namespace

std::string MsText(std::uint64_t time_us) {
    char text[40];
    std::snprintf(text, sizeof text, "%llu.%03u", static_cast<unsigned long long>(time_us / 1000),
                  static_cast<unsigned>(time_us % 1000));
    return text;
}

std::string SecondsText(std::uint64_t time_us, unsigned places) {
    char text[40];
    std::snprintf(text, sizeof text, "%llu.%06u",
                  static_cast<unsigned long long>(time_us / 1'000'000),
                  static_cast<unsigned>(time_us % 1'000'000));
    const std::string whole(text);
    return whole.substr(0, whole.size() - 6 + std::min(places, 6U));
}

std::string PayloadText(const Payload& payload, std::size_t most) {
    if (payload.length <= most && payload.IsWhole()) return HexText(payload.bytes, " ");
    const std::size_t shown = std::min(most, payload.bytes.size());
    const Bytes first(payload.bytes.begin(),
                      payload.bytes.begin() + static_cast<std::ptrdiff_t>(shown));
    return HexText(first, " ") + " .. (" + std::to_string(payload.length) + " bytes)";
}

std::string ErrorText(std::uint32_t code) {
    switch (code) {
        case kNothingReceived:
            return "nothing was received";
        case kNothingFitting:
            return "no fitting answer";
        default:
            return "error " + std::to_string(code);
    }
}

std::string OutcomeText(const Request& request) {
    if (request.is_raw) return request.IsSendRecv() ? "raw reception" : "raw frame sent";
    if (request.IsCancelled()) return "cancelled";
    if (!request.errors.empty() && request.results == 0) return ErrorText(request.errors.back());
    if (request.state == 0 && request.freed_us > 0) return "not executed";
    if (!request.IsFinished()) return "not finished";
    if (!request.IsSendRecv()) return "done";
    return AnsweredText(request);
}

std::string RequestText(const Request& request, std::size_t most) {
    if (request.IsSendRecv() && request.sent.length > 0) return PayloadText(request.sent, most);
    if (request.SendsRawFrame()) return RawFrameText(request.sent);
    const std::string type = ComPrimitiveTypeText(request.type);
    return request.sent.length == 0 ? type : type + " " + PayloadText(request.sent, most);
}

std::string AddressText(const Request& request) {
    if (request.exchanges.empty()) return "";
    const Exchange& exchange = request.exchanges.back();
    if (exchange.is_functional) return CanIdText(exchange.request_id);
    return EcuAddressText({exchange.request_id, exchange.response_id});
}

}  // namespace dpdu::trace
