// CAN frames on a raw link, and their text forms.

#ifndef TOOLS_DPDU_RAW_CAN_FRAME_H
#define TOOLS_DPDU_RAW_CAN_FRAME_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dpdu.hpp"
#include "text/hex.h"
#include "uds/ecu_address.h"

namespace dpdu {

inline constexpr std::size_t kLargestFrame = 8;  // data bytes

struct CanFrame {
    std::uint32_t id = 0;
    bool is_29_bit = false;
    Bytes data;
};

// The raw link's format: four bytes identifier, most significant first, then the data.
Bytes RawBytes(const CanFrame& frame);
// nullopt if there are fewer than four bytes.
std::optional<CanFrame> ReadFrame(const PDU_EVENT_ITEM& result);

// "7E8" or "18DAF110"
std::string FrameIdText(const CanFrame& frame);

// "(000.012000)  can0       7E8  [3]  01 02 03" with the time since the first frame.
std::string CandumpLine(const CanFrame& frame, std::uint64_t time_us);
// "(1700000000.012000) can0 7E8#010203" with the time since 1970.
std::string CandumpLogLine(const CanFrame& frame, std::uint64_t time_us);

// Selects identifiers.
struct CanFilter {
    std::uint32_t id = 0;
    std::uint32_t mask = kLargest29BitId;  // bits to compare
};

// "7E8" or "7E0/7F8".
std::optional<CanFilter> ParseCanFilter(const std::string& text);

// True if one of the filters matches the identifier, or if there are no filters.
bool Passes(const std::vector<CanFilter>& filters, std::uint32_t id);

// Times of frames from the first one on, whatever time passes between them.
class FrameTimes {
public:
    // Microseconds since the first time stamp; zero for the first one and for any before it.
    std::uint64_t SinceFirst(UNUM32 timestamp_us, pdu::StampClock::HostClock::time_point now =
                                                      pdu::StampClock::HostClock::now());

private:
    pdu::StampClock clock_;
    std::optional<pdu::Microseconds> first_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_CAN_FRAME_H
