#include "trace/bus_messages.h"

#include <algorithm>
#include <utility>

namespace dpdu::trace {
namespace {

constexpr std::size_t kFrameSize = 8;
constexpr std::uint32_t kLongestSingle = 7;
constexpr std::uint32_t kLongestOfTwelveBits = 4095;
constexpr std::uint8_t kFirstFrame = 0x10;
constexpr std::uint8_t kConsecutiveFrame = 0x20;

std::uint8_t ByteOf(std::uint32_t value, unsigned shift) {
    return static_cast<std::uint8_t>(value >> shift);
}

Bytes FirstFrameHeader(std::uint32_t length) {
    if (length <= kLongestOfTwelveBits) {
        return {static_cast<std::uint8_t>(kFirstFrame | length >> 8), ByteOf(length, 0)};
    }
    return {kFirstFrame,      0, ByteOf(length, 24), ByteOf(length, 16), ByteOf(length, 8),
            ByteOf(length, 0)};
}

}  // namespace

std::vector<Bytes> IsoTpFrames(const Payload& payload) {
    const Bytes& bytes = payload.bytes;
    std::vector<Bytes> frames;
    Bytes frame = payload.length <= kLongestSingle
                      ? Bytes{static_cast<std::uint8_t>(payload.length)}
                      : FirstFrameHeader(payload.length);
    std::size_t at = 0;
    for (std::uint8_t number = 1; at < payload.length; ++number) {
        const std::size_t share = std::min(kFrameSize - frame.size(), payload.length - at);
        if (share > bytes.size() - at) return frames;
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        frame.insert(frame.end(), begin, begin + static_cast<std::ptrdiff_t>(share));
        at += share;
        frames.push_back(std::move(frame));
        frame = {static_cast<std::uint8_t>(kConsecutiveFrame | (number & 0x0F))};
    }
    return frames;
}

BusMessage BusMessages::MessageOf(const Request& request, std::uint64_t time_us) {
    const auto next = static_cast<std::uint32_t>(buses_.size());
    BusMessage message;
    message.time_us = time_us;
    message.bus = buses_.try_emplace(request.module, next).first->second;
    message.cop = request.cop;
    return message;
}

void BusMessages::HandOn(BusMessage message, const Payload& payload) {
    message.length = payload.length;
    message.recorded = static_cast<std::uint32_t>(payload.bytes.size());
    message.payload = payload.bytes;
    message.frames = IsoTpFrames(payload);
    if (!payload.IsWhole()) ++incomplete_;
    if (!message.frames.empty()) handler_(message);
}

void BusMessages::OnSent(const Request& request, const Exchange& exchange) {
    BusMessage message = MessageOf(request, exchange.sent_us);
    message.is_sent = true;
    message.can_id = exchange.request_id;
    message.peer_id = exchange.response_id;
    HandOn(std::move(message), request.sent);
}

void BusMessages::OnAnswer(const Request& request, const Exchange& exchange) {
    if (exchange.result != ExchangeResult::kAnswered) return;
    for (const UnitAnswer& answer : exchange.answers)
        OnLateAnswer(request, answer, exchange.answered_us);
    if (exchange.is_functional) return;
    BusMessage message = MessageOf(request, exchange.answered_us);
    message.can_id = exchange.response_id;
    message.peer_id = exchange.request_id;
    HandOn(std::move(message), exchange.answer);
}

void BusMessages::OnLateAnswer(const Request& request, const UnitAnswer& answer,
                               std::uint64_t time_us) {
    if (answer.position >= request.units.size()) return;
    BusMessage message = MessageOf(request, time_us);
    message.can_id = request.units[answer.position].response_id;
    message.peer_id = request.units[answer.position].request_id;
    HandOn(std::move(message), answer.payload);
}

void BusMessages::OnRawFrame(const Request& request, const RawFrame& frame) {
    if (!frame.is_whole) {
        ++no_frames_;
        return;
    }
    BusMessage message = MessageOf(request, frame.time_us);
    message.is_sent = frame.is_sent;
    message.can_id = frame.can_id;
    message.is_raw = true;
    message.length = static_cast<std::uint32_t>(frame.data.size());
    message.recorded = message.length;
    message.payload = frame.data;
    message.frames = {frame.data};
    handler_(message);
}

}  // namespace dpdu::trace
