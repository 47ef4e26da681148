#include "scan/plan.h"

namespace dpdu {

std::optional<std::uint32_t> UsualResponseId(std::uint32_t request_id, std::uint32_t offset) {
    constexpr std::uint32_t kFixedHead = 0x18DA0000;
    if (request_id > kLargest11BitId) {
        if ((request_id & 0xFFFF0000) != kFixedHead) return std::nullopt;
        return kFixedHead | (request_id & 0xFF) << 8 | (request_id >> 8 & 0xFF);
    }
    if (request_id + offset > kLargest11BitId) return std::nullopt;
    return request_id + offset;
}

bool IsAllowedInScan(const Bytes& request) {
    if (request.empty()) return false;
    switch (request.front()) {
        case 0x10:
            return request == Bytes{0x10, 0x01};
        case 0x3E:
            return request == kTesterPresentRequest;
        case 0x19:
        case 0x22:
            return true;
        default:
            return false;
    }
}

}  // namespace dpdu
