#include "trace/text.h"

#include <algorithm>
#include <chrono>
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

std::string DateText(std::uint64_t since_1970_us) {
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    using std::chrono::milliseconds;
    const auto time = std::chrono::sys_time<milliseconds>(milliseconds(since_1970_us / 1000));
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    char text[80];
    std::snprintf(
        text, sizeof text, "%s %s %u %02d:%02d:%02d.%03d %s %d",
        kDays[std::chrono::weekday(day).c_encoding()],
        kMonths[static_cast<unsigned>(date.month()) - 1], static_cast<unsigned>(date.day()),
        static_cast<int>(std::chrono::make12(clock.hours()).count()),
        static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
        static_cast<int>(clock.subseconds().count()),
        std::chrono::is_am(clock.hours()) ? "am" : "pm", static_cast<int>(date.year()));
    return text;
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
