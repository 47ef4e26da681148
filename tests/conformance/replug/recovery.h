#pragma once

// What docs/compatibility.md tells an application to do about a dongle that was pulled out and put
// back, and what it sees until then.

#include "conformance/framework/items.h"
#include "conformance/framework/library.h"
#include "conformance/framework/waiting.h"

namespace conformance {

inline UNUM32 ModuleStatus(UNUM32 hMod) {
    UNUM32 status = 0;
    Pdu().PDUGetStatus(hMod, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &status, nullptr, nullptr);
    return status;
}

// Scans until the module's dongle is missing; false: it is not.
inline bool ScanUntilNotAvailable(UNUM32 hMod) {
    return Eventually([hMod] {
        GetModuleIds();
        return ModuleStatus(hMod) == PDU_MODST_NOT_AVAIL;
    });
}

}  // namespace conformance
