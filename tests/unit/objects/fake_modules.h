#pragma once

// A constructed library without configuration and threads of transports: scans find the dongles
// that the test names.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "comparam/comparams.h"
#include "dpdu_api.h"
#include "objects/event_callbacks.h"
#include "objects/lifecycle.h"
#include "objects/modules.h"
#include "support/memory.h"
#include "transport/transport_table.h"
#include "unit/test_support.h"

namespace tarvik::test {

struct FakeDongle {
    std::uint8_t mac_end;  // last byte of the address 02:13:24:35:46:xx
    std::uint32_t model = 5;
    std::string name = "Dongle";
};

inline LoginRecord LoginOf(const FakeDongle& dongle) {
    LoginRecord login{};
    const std::uint8_t mac[] = {0x02, 0x13, 0x24, 0x35, 0x46, dongle.mac_end};
    std::memcpy(login.bytes + 12, mac, sizeof mac);
    StoreU32(login.bytes + 20, dongle.model);
    std::memcpy(login.bytes + 64, dongle.name.data(), dongle.name.size());
    return login;
}

// What the next scan finds. Scans run on other threads, but only inside PDUGetModuleIds.
inline std::vector<FakeDongle> serial_dongles;
inline std::vector<FakeDongle> cloud_dongles;
inline DeviceQueues* serial_queues = nullptr;    // of every serial dongle
inline std::vector<std::uint8_t> addressed;      // mac_end of every AddressDevice
inline std::vector<std::uint32_t> disconnected;  // hMod of every Disconnect

inline void ReportAll(const std::vector<FakeDongle>& dongles, std::uint32_t transport,
                      ReportDevice report, void* context, DeviceQueues* queues = nullptr) {
    for (const FakeDongle& dongle : dongles) {
        report(context, {transport, LoginOf(dongle), queues});
    }
}

inline constexpr Transport kFakeSerial = {
    .name = "Serial",
    .id = 1,
    .interface_name = "USB",
    .connection_type = "USB",
    .module_type_id = 1,
    .mtu = 0,
    .Init = nullptr,
    .Deinit = nullptr,
    .Start = nullptr,
    .Stop = nullptr,
    .UpdateDevices =
        [](std::uint32_t, ReportDevice report, void* context) {
            ReportAll(serial_dongles, 1, report, context, serial_queues);
            return true;
        },
    .AddressDevice = nullptr,
    .Disconnect = nullptr,
    .update_timeout_ms = 200,
    .connect_timeout_ms = 0};

inline constexpr Transport kFakeCloud = {
    .name = "Cloud",
    .id = 0,
    .interface_name = "Network",
    .connection_type = "Cloud",
    .module_type_id = 2,
    .mtu = 0,
    .Init = nullptr,
    .Deinit = nullptr,
    .Start = nullptr,
    .Stop = nullptr,
    .UpdateDevices =
        [](std::uint32_t, ReportDevice report, void* context) {
            ReportAll(cloud_dongles, 0, report, context);
            return true;
        },
    .AddressDevice =
        [](const std::uint8_t* mac) {
            addressed.push_back(mac[5]);
            return true;
        },
    .Disconnect = [](std::uint32_t hMod) { disconnected.push_back(hMod); },
    .update_timeout_ms = 500,
    .connect_timeout_ms = 0};

class FakeModules : public testing::Test {
protected:
    void SetUp() override {
        DebugLogPath();
        serial_dongles = {{.mac_end = 1}};
        serial_queues = nullptr;
        cloud_dongles.clear();
        addressed.clear();
        disconnected.clear();
        TransportTable = {};
        RegisterTransport(&kFakeSerial);
        RegisterTransport(&kFakeCloud);
        SetApiTag(&api_tag);
        SystemEventQueue->Initialize();
        ASSERT_TRUE(AllocParamItems());
        ASSERT_TRUE(ChangeLibraryState(Lifecycle::kNotConstructed, Lifecycle::kConstructed));
    }
    void TearDown() override {
        PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
        PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
        PDUDestruct();
        TransportTable = {};
    }

    // The handles that a scan lists.
    static std::vector<std::uint32_t> Scan() {
        PDU_MODULE_ITEM* item = nullptr;
        EXPECT_EQ(PDUGetModuleIds(&item), PDU_STATUS_NOERROR);
        std::vector<std::uint32_t> handles;
        if (item == nullptr) return handles;
        for (std::uint32_t i = 0; i < item->NumEntries; ++i) {
            handles.push_back(item->pModuleData[i].hMod);
        }
        PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
        return handles;
    }
    static std::uint32_t ModuleStatus(std::uint32_t hMod) {
        std::uint32_t status = 0;
        EXPECT_EQ(PDUGetStatus(hMod, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &status, nullptr, nullptr),
                  PDU_STATUS_NOERROR);
        return status;
    }

    int api_tag = 0;
};

using Handles = std::vector<std::uint32_t>;

}  // namespace tarvik::test
