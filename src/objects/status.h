#pragma once

#include <cstdint>

#include "dpdu_types.h"

// The states that PDUGetStatus reports. `status` may be null. `function` is the tag of the log
// lines.
namespace tarvik {

// Searches every module for the ComPrimitive. Success leaves ModuleDevicesLock with the calling
// thread.
T_PDU_ERROR ComPrimitiveStatus(const char* function, std::uint32_t hCoP, T_PDU_STATUS* status);
// False: the handles name no link. Logs nothing.
bool LinkStatus(std::uint32_t hMod, std::uint32_t hCLL, T_PDU_STATUS* status);
T_PDU_ERROR ModuleStatus(const char* function, std::uint32_t hMod, T_PDU_STATUS* status);

}  // namespace tarvik
