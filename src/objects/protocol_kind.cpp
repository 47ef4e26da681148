#include "objects/protocol_kind.h"

namespace tarvik {

ProtocolKind DecideProtocol(std::uint32_t bus_type, std::uint32_t protocol) {
    if (bus_type == kBusTypeDoip || protocol == kProtocolDoip) return ProtocolKind::kDoip;
    if (bus_type == kBusTypeCan || protocol == kProtocolCan) return ProtocolKind::kCan;
    return ProtocolKind::kUnknown;
}

}  // namespace tarvik
