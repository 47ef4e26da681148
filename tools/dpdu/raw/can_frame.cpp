#include "raw/can_frame.h"

#include "links/com_primitive.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace dpdu {
namespace {

constexpr std::size_t kIdBytes = 4;
constexpr std::uint64_t kMicroseconds = 1'000'000;

std::string TimeText(std::uint64_t time_us) {
    char text[40];
    std::snprintf(text, sizeof text, "(%03" PRIu64 ".%06" PRIu64 ")", time_us / kMicroseconds,
                  time_us % kMicroseconds);
    return text;
}

// The flag alone is not enough: not every library sets it for all 29-bit identifiers.
bool Has29Bits(const PDU_RESULT_DATA& result, std::uint32_t id) {
    const bool is_flagged = result.RxFlag.NumFlagBytes > 2 && result.RxFlag.pFlagData &&
                            (result.RxFlag.pFlagData[2] & PDU_RX_FLAG2_CAN_29BIT_ID);
    return is_flagged || id > kLargest11BitId;
}

}  // namespace

Bytes RawBytes(const CanFrame& frame) {
    Bytes bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(frame.id >> shift));
    bytes.insert(bytes.end(), frame.data.begin(), frame.data.end());
    return bytes;
}

std::optional<CanFrame> ReadFrame(const PDU_EVENT_ITEM& result) {
    const Bytes bytes = ReadAnswer(result).data;
    if (bytes.size() < kIdBytes) return std::nullopt;
    CanFrame frame;
    for (std::size_t i = 0; i < kIdBytes; ++i)
        frame.id = frame.id << 8 | bytes[i];
    frame.is_29_bit = Has29Bits(*static_cast<const PDU_RESULT_DATA*>(result.pData), frame.id);
    frame.data.assign(bytes.begin() + kIdBytes, bytes.end());
    return frame;
}

std::string FrameIdText(const CanFrame& frame) {
    return HexNumber(frame.id, frame.is_29_bit ? 8 : 3);
}

std::string CandumpLine(const CanFrame& frame, std::uint64_t time_us) {
    const std::string id = FrameIdText(frame);
    const std::string indent(id.size() < 8 ? 8 - id.size() : 0, ' ');
    std::string line = TimeText(time_us) + "  can0  " + indent + id + "  [" +
                       std::to_string(frame.data.size()) + "]";
    if (!frame.data.empty()) line += "  " + HexText(frame.data, " ");
    return line;
}

std::string CandumpLogLine(const CanFrame& frame, std::uint64_t time_us) {
    return TimeText(time_us) + " can0 " + FrameIdText(frame) + "#" + HexText(frame.data);
}

std::optional<CanFilter> ParseCanFilter(const std::string& text) {
    const std::size_t slash = text.find('/');
    const std::optional<std::uint32_t> id = ParseCanId(text.substr(0, slash));
    if (!id) return std::nullopt;
    if (slash == std::string::npos) return CanFilter{*id};
    const std::optional<std::uint32_t> mask = ParseCanId(text.substr(slash + 1));
    if (!mask) return std::nullopt;
    return CanFilter{*id, *mask};
}

bool Passes(const std::vector<CanFilter>& filters, std::uint32_t id) {
    for (const CanFilter& filter : filters) {
        if (((id ^ filter.id) & filter.mask) == 0) return true;
    }
    return filters.empty();
}

std::uint64_t FrameTimes::SinceFirst(UNUM32 timestamp_us,
                                     pdu::StampClock::HostClock::time_point now) {
    const pdu::Microseconds time = clock_.Extend(timestamp_us, now);
    if (!first_) first_ = time;
    return static_cast<std::uint64_t>(std::max(time - *first_, pdu::Microseconds(0)).count());
}

}  // namespace dpdu
