#pragma once

#include <cstdint>

#include "dpdu_types.h"
#include "support/memory.h"

// The DOIP packets that the DoIP commands of PDUIoCtl build and drop: no dongle takes them yet.
namespace tarvik {

enum class DoipRequestKind : std::uint32_t {
    kVehicleId = 3,
    kEthSwitchState = 4,
    kEntityStatus = 5,
    kDiagnosticPowerMode = 6,
};

struct DoipRequest {
    Tracked<std::uint8_t> bytes;  // null: memory is out, or the packet would exceed 4 GiB
    std::uint32_t length = 0;
};

// Reads the destination addresses' records, not the addresses they point to.
DoipRequest BuildVehicleIdRequest(const PDU_IO_VEHICLE_ID_REQUEST& input);
// Kinds 4 to 6: two values.
DoipRequest BuildValueRequest(DoipRequestKind kind, std::uint32_t first, std::uint32_t second);

}  // namespace tarvik
