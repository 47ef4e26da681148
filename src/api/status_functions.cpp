#include <cstring>

#include "api/versions.h"
#include "dpdu_api.h"
#include "objects/lifecycle.h"
#include "objects/modules.h"
#include "objects/status.h"
#include "platform/tick.h"
#include "support/log.h"

namespace tarvik {
namespace {

// Packed as in versions.h.
constexpr std::uint32_t kHardwareVersion = 0x01000000;
// Packed: year since 1970, month, day, 0.
constexpr std::uint32_t kReleaseDate = 0x36051600;

// Writes the text and its NUL only: the rest of the field keeps its contents.
void StoreText(CHAR8* field, const char* text) { std::memcpy(field, text, std::strlen(text) + 1); }

void FillVersion(PDU_VERSION_DATA* version) {
    version->MVCI_Part1StandardVersion = kStandardVersion;
    version->MVCI_Part2StandardVersion = kStandardVersion;
    version->HwSerialNumber = 1;
    StoreText(version->HwName, "Brennix");
    version->HwVersion = kHardwareVersion;
    version->HwDate = kReleaseDate;
    version->HwInterface = 0;
    StoreText(version->FwName, "v0.1");
    version->FwVersion = kSoftwareVersion;
    version->FwDate = kReleaseDate;
    StoreText(version->VendorName, "Tarvik");
    StoreText(version->PDUApiSwName, "Tarvik D-PDU API");
    version->PDUApiSwVersion = kSoftwareVersion;
    version->PDUApiSwDate = kReleaseDate;
}

std::uint32_t Succeed(const char* function) {
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", function);
    return PDU_STATUS_NOERROR;
}

std::uint32_t LogLockCall(const char* function, std::uint32_t hMod, std::uint32_t hCLL,
                          std::uint32_t mask) {
    Log(kLogTrace, "[%s] Called (hMod=%u, hCLL=%u, LockMask=0x%X)", function, hMod, hCLL, mask);
    return Succeed(function);
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUGetVersion(UNUM32 hMod, PDU_VERSION_DATA* pVersionData) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (hMod=%u)", __func__, hMod);
    if (!CheckModuleHandle(__func__, hMod)) return PDU_ERR_INVALID_HANDLE;
    FillVersion(pVersionData);
    return Succeed(__func__);
}

extern "C" T_PDU_ERROR PDU_CALL PDUGetTimestamp(UNUM32 hMod, UNUM32* pTimestamp) {
    const ApiCall call;
    if (!CheckModuleHandle(__func__, hMod)) return PDU_ERR_INVALID_HANDLE;
    Log(kLogTrace, "[%s] Called (hMod=%u)", __func__, hMod);
    if (pTimestamp == nullptr) return Succeed(__func__);
    *pTimestamp = TimestampUs();
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR, *pTimestamp=%u", __func__, *pTimestamp);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUGetStatus(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP,
                                             T_PDU_STATUS* pStatusCode, UNUM32* pTimestamp,
                                             UNUM32* pExtraInfo) {
    const ApiCall call;
    Log(kLogTrace, "[%s] (%u, %u, ...)", __func__, hMod, hCLL);
    if (pTimestamp != nullptr) *pTimestamp = TimestampUs();
    if (pExtraInfo != nullptr) *pExtraInfo = 0;
    if (hCoP != PDU_HANDLE_UNDEF) return ComPrimitiveStatus(__func__, hCoP, pStatusCode);
    if (LinkStatus(hMod, hCLL, pStatusCode)) return Succeed(__func__);
    return ModuleStatus(__func__, hMod, pStatusCode);
}

// The library keeps no last error, locks no resource and knows no conflicts: the functions below
// answer at any time, construct or not, and write nothing.

extern "C" T_PDU_ERROR PDU_CALL PDUGetLastError(UNUM32 hMod, UNUM32 hCLL, T_PDU_ERR_EVT*, UNUM32*,
                                                UNUM32*, UNUM32*) {
    Log(kLogTrace, "[%s] Called (hMod=%u, hCLL=%u)", __func__, hMod, hCLL);
    return Succeed(__func__);
}

extern "C" T_PDU_ERROR PDU_CALL PDUGetResourceStatus(PDU_RSC_STATUS_ITEM*) {
    Log(kLogTrace, "[%s] Called", __func__);
    return Succeed(__func__);
}

extern "C" T_PDU_ERROR PDU_CALL PDUGetConflictingResources(UNUM32 resourceId, PDU_MODULE_ITEM*,
                                                           PDU_RSC_CONFLICT_ITEM**) {
    Log(kLogTrace, "[%s] Called (resourceId=%u)", __func__, resourceId);
    return Succeed(__func__);
}

extern "C" T_PDU_ERROR PDU_CALL PDULockResource(UNUM32 hMod, UNUM32 hCLL, UNUM32 LockMask) {
    return LogLockCall(__func__, hMod, hCLL, LockMask);
}

extern "C" T_PDU_ERROR PDU_CALL PDUUnlockResource(UNUM32 hMod, UNUM32 hCLL, UNUM32 LockMask) {
    return LogLockCall(__func__, hMod, hCLL, LockMask);
}
