#include <windows.h>
// setupapi.h needs windows.h first.
#include <setupapi.h>

#include <cfgmgr32.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "support/log.h"
#include "transport/serial/port_discovery.h"
#include "transport/serial/port_names.h"

namespace tarvik {

namespace {

constexpr char kDongleHardwareId[] = "VID_303A&PID_1001";

// The Ports device class: {4D36E978-E325-11CE-BFC1-08002BE10318}.
constexpr GUID kPortsClass = {
    0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

struct CloseDeviceSet {
    void operator()(HDEVINFO set) const { ::SetupDiDestroyDeviceInfoList(set); }
};
using DeviceSet = std::unique_ptr<std::remove_pointer_t<HDEVINFO>, CloseDeviceSet>;

struct CloseKey {
    void operator()(HKEY key) const { ::RegCloseKey(key); }
};
using DeviceKey = std::unique_ptr<std::remove_pointer_t<HKEY>, CloseKey>;

bool ReadPortName(HDEVINFO set, SP_DEVINFO_DATA* device, char* name, DWORD capacity) {
    const HKEY opened =
        ::SetupDiOpenDevRegKey(set, device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ);
    if (opened == INVALID_HANDLE_VALUE) return false;
    const DeviceKey key(opened);
    DWORD type = 0;
    DWORD size = capacity - 1;  // the registry need not hold the NUL
    if (::RegQueryValueExA(key.get(), "PortName", nullptr, &type, reinterpret_cast<BYTE*>(name),
                           &size) != ERROR_SUCCESS ||
        type != REG_SZ) {
        return false;
    }
    name[size] = '\0';
    return true;
}

// The property is a list of texts; a match in any of them counts.
bool IsDongle(HDEVINFO set, SP_DEVINFO_DATA* device) {
    char ids[1024];
    DWORD size = 0;
    if (!::SetupDiGetDeviceRegistryPropertyA(set, device, SPDRP_HARDWAREID, nullptr,
                                             reinterpret_cast<BYTE*>(ids), sizeof ids, &size)) {
        return false;
    }
    const char* end = ids + std::min<std::size_t>(size, sizeof ids);
    const char* wanted_end = kDongleHardwareId + sizeof kDongleHardwareId - 1;
    return std::search(static_cast<const char*>(ids), end, kDongleHardwareId, wanted_end) != end;
}

// Counts as started unless the system says otherwise: Wine's function succeeds and writes nothing.
PortReadiness ReadinessOf(DEVINST node) {
    ULONG status = DN_STARTED;
    ULONG problem = 0;
    if (::CM_Get_DevNode_Status(&status, &problem, node, 0) != CR_SUCCESS) {
        return PortReadiness::kReady;
    }
    const bool runs = (status & DN_STARTED) != 0 && (status & DN_HAS_PROBLEM) == 0;
    return runs ? PortReadiness::kReady : PortReadiness::kStopped;
}

}  // namespace

bool DiscoverPorts(FoundPort found, void* context) {
    const HDEVINFO opened =
        ::SetupDiGetClassDevsA(&kPortsClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_PROFILE);
    if (opened == INVALID_HANDLE_VALUE) return false;
    const DeviceSet set(opened);

    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    for (DWORD i = 0; ::SetupDiEnumDeviceInfo(set.get(), i, &device); ++i) {
        char name[32];
        if (!ReadPortName(set.get(), &device, name, sizeof name)) continue;
        const auto number = NumberOfComPort(name);
        if (!number || !IsDongle(set.get(), &device)) continue;
        char path[sizeof name + 8];
        FormatText(path, sizeof path, "\\\\.\\%s", name);
        found(context, {*number, path, ReadinessOf(device.DevInst)});
    }
    return true;
}

void AdviseOnPort(const ListedPort&, char* text, std::size_t size) {
    FormatText(text, size, "enable the port in Device Manager, or plug the dongle in again");
}

}  // namespace tarvik
