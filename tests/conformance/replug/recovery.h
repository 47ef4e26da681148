#pragma once

// The recovery of an application after its dongle was unplugged and replugged, as described in
// docs/compatibility.md, and what the application sees until then.

#include <gtest/gtest.h>

#include "conformance/framework/items.h"
#include "conformance/framework/library.h"
#include "conformance/framework/waiting.h"

namespace conformance {

inline UNUM32 ModuleStatus(UNUM32 hMod) {
    UNUM32 status = 0;
    EXPECT_EQ(
        Pdu().PDUGetStatus(hMod, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &status, nullptr, nullptr),
        PDU_STATUS_NOERROR);
    return status;
}

// Scans until the module's dongle is missing. False if it stays available.
inline bool ScanUntilNotAvailable(UNUM32 hMod) {
    return Eventually([hMod] {
        GetModuleIds();
        return ModuleStatus(hMod) == PDU_MODST_NOT_AVAIL;
    });
}

}  // namespace conformance
