#pragma once

#include <cstdint>
#include <string_view>

#include "objects/protocol_kind.h"

// The names that PDUGetObjectId knows, except IOCTLs (ioctl_table.h) and ComParams
// (comparam_table.h).
namespace tarvik {

struct ObjectName {
    std::string_view name;
    std::uint32_t id;
    std::string_view description;  // for the module description file
};

inline constexpr ObjectName kProtocolUds = {"ISO_15765_3_on_ISO_15765_2", kProtocolCan,
                                            "UDS on CAN"};
// Deliberate: both protocols have the same id.
inline constexpr ObjectName kProtocolRaw = {"ISO_11898_RAW", kProtocolCan, "Raw CAN frames"};

inline constexpr ObjectName kProtocols[] = {kProtocolUds, kProtocolRaw};
inline constexpr ObjectName kBusTypes[] = {
    {"ISO_11898_2_DWCAN", kBusTypeCan, "High-speed CAN, two wires"}};
inline constexpr ObjectName kPinTypes[] = {{"HI", 0, "CAN high"}, {"LOW", 1, "CAN low"}};
inline constexpr ObjectName kResources[] = {
    {"ISO_UDS_on_OBD", kResourceCan, "UDS on the CAN pins of the OBD connector"}};

}  // namespace tarvik
