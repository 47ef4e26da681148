// CAN frames as a raw link carries them, and as text.

#ifndef TOOLS_DPDU_RAW_CAN_FRAME_H
#define TOOLS_DPDU_RAW_CAN_FRAME_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dpdu_types.h"
#include "text/hex.h"
#include "uds/ecu_address.h"

namespace dpdu {

inline constexpr std::size_t kLargestFrame = 8;  // data bytes

struct CanFrame {
    std::uint32_t id = 0;
    bool is_29_bit = false;
    Bytes data;
};

// As a raw link takes and gives it: four bytes of identifier, most significant first, then data.
Bytes RawBytes(const CanFrame& frame);
// Nothing when there are fewer than four bytes.
std::optional<CanFrame> ReadFrame(const PDU_EVENT_ITEM& result);

// "7E8" or "18DAF110"
std::string FrameIdText(const CanFrame& frame);

// "(000.012000)  can0       7E8  [3]  01 02 03", the time being that since the first frame.
std::string CandumpLine(const CanFrame& frame, std::uint64_t time_us);
// "(1700000000.012000) can0 7E8#010203", the time being that since 1970.
std::string CandumpLogLine(const CanFrame& frame, std::uint64_t time_us);

// Which identifiers are wanted.
struct CanFilter {
    std::uint32_t id = 0;
    std::uint32_t mask = kLargest29BitId;  // bits that count
};

// "7E8" or "7E0/7F8".
std::optional<CanFilter> ParseCanFilter(const std::string& text);

// True when one of the filters lets the identifier through, or when there is none.
bool Passes(const std::vector<CanFilter>& filters, std::uint32_t id);

// Turns time stamps of 32 bits, which wrap after 71 minutes, into ones that do not.
class TimestampExtender {
public:
    // Zero for the first one, however it came.
    std::uint64_t SinceFirst(UNUM32 timestamp_us);

private:
    std::optional<UNUM32> last_;
    std::uint64_t since_first_ = 0;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_CAN_FRAME_H
