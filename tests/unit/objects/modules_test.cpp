#include <atomic>
#include <cstdint>
#include <cstring>
#include <utility>

#include "link/packet.h"
#include "objects/module_list.h"
#include "objects/module_scan.h"
#include "platform/thread.h"
#include "transport/login_report.h"
#include "unit/faults/thread_start_fault.h"
#include "unit/objects/fake_modules.h"

namespace tarvik::test {
namespace {

using Modules = FakeModules;

int ReportLogin(const FakeDongle& dongle, DeviceQueues* queues = nullptr) {
    const PacketPtr packet = MakePacket(kTypeLogn, kLoginSize);
    const LoginRecord login = LoginOf(dongle);
    std::memcpy(packet->Bytes() + 8, login.bytes + 8, kLoginSize - 8);
    return DpduTransportReportLoginPacket(&kFakeCloud, packet.get(), queues);
}

TEST_F(Modules, ItemDescribesADongleBehindARelay) {
    const std::string name(32, 'N');  // fills its field, without a NUL
    serial_dongles.clear();
    cloud_dongles = {{.mac_end = 0xAB, .model = 13, .name = name}};
    PDU_MODULE_ITEM* item = nullptr;
    const LogCapture log;
    ASSERT_EQ(PDUGetModuleIds(&item), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Mentions("(MAC: 02:13:24:35:46:AB, Transport: 0)"));
    ASSERT_EQ(item->NumEntries, 1u);
    EXPECT_EQ(item->pModuleData[0].ModuleTypeId, 2u);
    EXPECT_EQ(item->pModuleData[0].pVendorModuleName,
              "VendorName='Tarvik' ModuleName='" + name +
                  "' SerialNumber='02:13:24:35:46:AB' PersonalVciID='" + name +
                  "' ConnectionType='Cloud' Status='available'");
    EXPECT_STREQ(item->pModuleData[0].pVendorAdditionalInfo, "Interface='Network'");
    PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
}

TEST_F(Modules, ScanAcceptsThreeModels) {
    serial_dongles.clear();
    std::uint8_t mac_end = 0;
    for (const std::uint32_t model :
         {0u, 4u, 5u, 6u, 12u, 13u, 14u, 0xFFFu, 0x1000u, 0x1001u, 0x1005u, 0x10000u}) {
        serial_dongles.push_back({.mac_end = ++mac_end, .model = model});
    }
    EXPECT_EQ(Scan(), (Handles{0, 1, 2}));
    std::vector<std::uint8_t> found;
    for (std::uint32_t hMod = 0; hMod < 3; ++hMod)
        found.push_back(ModuleDevices->slots[hMod].login.Mac()[5]);
    EXPECT_EQ(found, (std::vector<std::uint8_t>{3, 6, 9}));
}

TEST_F(Modules, LoginPacketFindsItsDongleInAnySlot) {
    cloud_dongles = {{.mac_end = 7}, {.mac_end = 8}};
    EXPECT_EQ(Scan(), (Handles{0, 1, 2}));
    ReportLogin({.mac_end = 8});
    ReportLogin({.mac_end = 7});
    EXPECT_EQ(ModuleDevices->count, 3u);
    ReportLogin({.mac_end = 9});
    EXPECT_EQ(ModuleDevices->count, 4u);
}

std::atomic<bool> slow_scan_runs{false};
std::atomic<bool> slow_scan_ends{false};
std::atomic<std::uintptr_t> slow_scan_context{0};
std::atomic<std::uintptr_t> caller_stack{0};

// Its scan reports once the test allows it.
Transport SlowTransport() {
    Transport slow = kFakeSerial;
    slow.id = 9;
    slow.UpdateDevices = [](std::uint32_t, ReportDevice report, void* context) {
        slow_scan_context = reinterpret_cast<std::uintptr_t>(context);
        slow_scan_runs = true;
        const bool ended = Eventually([] { return slow_scan_ends.load(); });
        ReportAll(std::vector<FakeDongle>(50, {.mac_end = 1}), 9, report, context);
        return ended;
    };
    return slow;
}

// As when a callback of the application scans, and a destruct terminates its thread.
TEST_F(Modules, ScanGoesOnAfterTheThreadThatWaitsForItWasTerminated) {
    static const Transport slow = SlowTransport();
    RegisterTransport(&slow);
    slow_scan_runs = slow_scan_ends = false;
    OsThread* caller = OsThreadStart(
        [](void*) {
            char local = 0;
            caller_stack = reinterpret_cast<std::uintptr_t>(&local);
            UpdateModuleList();
        },
        nullptr, "Tarvik test");
    ASSERT_TRUE(Eventually([] { return slow_scan_runs.load(); }));
    // Windows releases the stack with the thread; Wine does not.
    const std::uintptr_t context = slow_scan_context;
    EXPECT_FALSE(context < caller_stack && caller_stack - context < 65'536);
    OsThreadTerminate(caller);
    slow_scan_ends = true;
    EXPECT_TRUE(OsThreadJoin(caller, 10'000));
    OsThreadClose(caller);
    EXPECT_TRUE(OsAllowUnloading(10'000));
}

TEST_F(Modules, VanishedDongleStaysAwayThoughItIsFoundAgain) {
    Scan();
    const std::vector<FakeDongle> dongles = std::exchange(serial_dongles, {});
    const LogCapture log;
    EXPECT_EQ(Scan(), Handles{0});
    EXPECT_EQ(ModuleStatus(0), PDU_MODST_NOT_AVAIL);
    const std::string again =
        "[UpdateModuleList] Device at index 0 is now present again, but that transition is not "
        "allowed";
    EXPECT_FALSE(log.Has(again));
    serial_dongles = dongles;
    EXPECT_EQ(Scan(), Handles{0});
    EXPECT_EQ(ModuleStatus(0), PDU_MODST_NOT_AVAIL);
    EXPECT_TRUE(log.Has(again));
}

TEST_F(Modules, DestructClearsTheirSlots) {
    serial_dongles = {{.mac_end = 0xAB}};
    Scan();
    ASSERT_EQ(ModuleDevices->count, 1u);
    ASSERT_EQ(ModuleDevices->slots[0].transport, 1u);
    std::uint8_t mac[6] = {1, 2, 3, 4, 5, 0xAB};
    std::memcpy(ModuleDevices->slots[0].login.bytes + 12, mac, sizeof mac);
    const LogCapture log;
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUDestruct] Clearing ModuleDevices array (1 modules present)"));
    EXPECT_TRUE(
        log.Has("[PDUDestruct] Clearing module slot 0 (Transport: 1, MAC: 01:02:03:04:05:AB)"));
    EXPECT_EQ(ModuleDevices->count, 0u);
    EXPECT_EQ(ModuleDevices->slots[0].transport, 0u);
    EXPECT_EQ(ModuleDevices->slots[0].status.load(), 0u);
    EXPECT_FALSE(ModuleDevices->slots[0].present.load());
}

TEST_F(Modules, ScanWithoutThreadsAsksOneTransportAfterTheOther) {
    cloud_dongles = {{.mac_end = 2}};
    Handles found;
    {
        const ThreadStartFault fault("Tarvik UpdateDevices", 11);
        found = Scan();
    }
    EXPECT_EQ(found, (Handles{0, 1}));
}

TEST_F(Modules, SameAddressOnTwoTransportsIsTwoModules) {
    cloud_dongles = serial_dongles;
    EXPECT_EQ(Scan(), (Handles{0, 1}));
    EXPECT_EQ(Scan(), (Handles{0, 1}));
}

TEST_F(Modules, NameIsRefreshedAndIsNotPartOfTheIdentity) {
    Scan();
    serial_dongles[0].name = "Renamed";
    const LogCapture log;
    EXPECT_EQ(Scan(), Handles{0});
    EXPECT_TRUE(log.Has("[UpdateModuleList] Updating existing device at index 0"));
    EXPECT_STREQ(LoginDeviceName(ModuleDevices->slots[0].login).text, "Renamed");
}

TEST_F(Modules, WithoutTransportTheItemIsEmpty) {
    TransportTable = {};
    EXPECT_EQ(Scan(), Handles{});
    PDU_MODULE_ITEM* item = MakeModuleItem();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->NumEntries, 0u);
    EXPECT_EQ(item->pModuleData, nullptr);
    FreePduItem(reinterpret_cast<PDU_ITEM*>(item));
}

TEST_F(Modules, FullTableIgnoresFurtherDongles) {
    serial_dongles.clear();
    for (unsigned i = 0; i < 256; ++i) {
        serial_dongles.push_back({.mac_end = static_cast<std::uint8_t>(i)});
    }
    EXPECT_EQ(Scan().size(), 256u);
    serial_dongles.push_back({.mac_end = 7});  // seen twice: the second is another dongle
    const LogCapture log;
    EXPECT_EQ(Scan().size(), 256u);
    EXPECT_TRUE(log.Has("[UpdateModuleList] ERROR: No free module slot for detected device 256"));
    EXPECT_EQ(ReportLogin({.mac_end = 1}), 0);
    EXPECT_TRUE(
        log.Has("[DpduTransportReportLoginPacket] No free module slot for transport=Cloud"));
}

TEST_F(Modules, ConnectAddressesADongleBehindARelayAndDisconnectNotifiesTheTransport) {
    serial_dongles.clear();
    cloud_dongles = {{.mac_end = 9}};
    Scan();
    const LogCapture log;
    EXPECT_EQ(PDUModuleConnect(0), PDU_STATUS_NOERROR);
    EXPECT_EQ(addressed, std::vector<std::uint8_t>{9});
    EXPECT_TRUE(log.Has("[PDUModuleConnect] Addressing device via Cloud transport"));
    EXPECT_EQ(PDUModuleDisconnect(0), PDU_STATUS_NOERROR);
    EXPECT_EQ(disconnected, Handles{0});
    EXPECT_TRUE(log.Has("[PDUModuleDisconnect] Disconnecting via Cloud transport"));
}

TEST_F(Modules, NamesAreLoggedWithoutControlCharacters) {
    serial_dongles = {{.mac_end = 1, .name = "a\r\n\x1B[0mb"}};
    const LogCapture log;
    Scan();
    ReportLogin({.mac_end = 8, .name = "c\nd"});
    EXPECT_TRUE(log.Mentions("detected client 'a...[0mb' (MAC: "));
    EXPECT_TRUE(log.Mentions(" device='c.d' mac="));
}

// ---- Unsolicited login packets ------------------------------------------------------------------

TEST_F(Modules, LoginPacketAddsAModuleOfAnyModelAndNotifiesOnce) {
    const LogCapture log;
    EXPECT_EQ(ReportLogin({.mac_end = 8, .model = 0xE, .name = "Pushed"}), 1);
    const std::string tag = "[DpduTransportReportLoginPacket] ";
    EXPECT_TRUE(
        log.Mentions(tag + "transport=Cloud(0) device='Pushed' mac=02:13:24:35:46:08 queues="));
    EXPECT_TRUE(log.Has(tag + "No existing module found - allocating new slot"));
    EXPECT_TRUE(log.Has(tag + "Using free slot hMod=0"));
    EXPECT_TRUE(log.Mentions(tag + "Set queues="));
    EXPECT_TRUE(log.Has(tag + "ModuleDevicesCount=1 (addedNew=true)"));
    EXPECT_TRUE(log.Has(tag + "Emitting module list changed notification"));
    EXPECT_TRUE(
        log.Has("[NotifySystemModuleListChanged] Enqueue system info event: "
                "PDU_INFO_MODULE_LIST_CHG"));
    EXPECT_TRUE(log.Has("[NotifySystemModuleListChanged] SystemEventCBR (4294967295, 4294967295)"));
    EXPECT_EQ(ModuleStatus(0), PDU_MODST_AVAIL);

    PDU_EVENT_ITEM* item = nullptr;
    ASSERT_EQ(PDUGetEventItem(PDU_HANDLE_UNDEF, 5, &item), PDU_STATUS_NOERROR);
    EXPECT_EQ(item->ItemType, PDU_IT_INFO);
    EXPECT_EQ(item->hCop, PDU_HANDLE_UNDEF);
    EXPECT_EQ(static_cast<PDU_INFO_DATA*>(item->pData)->InfoCode, PDU_INFO_MODULE_LIST_CHG);
    EXPECT_EQ(PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item)), PDU_STATUS_NOERROR);
    // That has not released it.
    EXPECT_EQ(item->ItemType, PDU_IT_INFO);
    const EventPtr taken(item);
    EXPECT_EQ(PDUGetEventItem(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &item),
              PDU_ERR_EVENT_QUEUE_EMPTY);
}

TEST_F(Modules, LoginPacketOfAKnownDongleRevivesIt) {
    serial_dongles.clear();
    ASSERT_EQ(ReportLogin({.mac_end = 8}), 1);
    Scan();
    ASSERT_EQ(ModuleStatus(0), PDU_MODST_NOT_AVAIL);
    const LogCapture log;
    EXPECT_EQ(ReportLogin({.mac_end = 8, .model = 5, .name = "Again"}), 0);
    EXPECT_EQ(ModuleStatus(0), PDU_MODST_AVAIL);
    const std::string tag = "[DpduTransportReportLoginPacket] ";
    EXPECT_TRUE(log.Has(tag + "Existing module found: hMod=0 (refresh login pkt)"));
    EXPECT_TRUE(log.Has(tag + "hMod=0 status NOT_AVAIL -> AVAIL"));
    EXPECT_TRUE(log.Has(tag + "ModuleDevicesCount=1 (addedNew=false)"));
    EXPECT_STREQ(LoginDeviceName(ModuleDevices->slots[0].login).text, "Again");
}

TEST_F(Modules, LoginReportsWithoutPacketOrLibraryAreIgnored) {
    const LogCapture log;
    EXPECT_EQ(DpduTransportReportLoginPacket(nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(log.Mentions("[DpduTransportReportLoginPacket] Invalid args: transport="));
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(ReportLogin({.mac_end = 8}), 0);
    EXPECT_TRUE(
        log.Has("[DpduTransportReportLoginPacket] PDU API not constructed - ignoring report"));
    EXPECT_FALSE(IsModulePresent(0));
}

// ---- Queries ------------------------------------------------------------------------------------

TEST_F(Modules, VersionIsTheSameForEveryModule) {
    serial_dongles.push_back({.mac_end = 2});
    Scan();
    PDU_VERSION_DATA versions[2];
    std::memset(versions, 0x5A, sizeof versions);
    EXPECT_EQ(PDUGetVersion(0, &versions[0]), PDU_STATUS_NOERROR);
    EXPECT_EQ(PDUGetVersion(1, &versions[1]), PDU_STATUS_NOERROR);
    EXPECT_EQ(std::memcmp(&versions[0], &versions[1], sizeof versions[0]), 0);
}

TEST_F(Modules, TimestampIsCutTo32Bits) {
    Scan();
    const FakeTick tick(5'000'001);
    std::uint32_t timestamp = 0;
    EXPECT_EQ(PDUGetTimestamp(0, &timestamp), PDU_STATUS_NOERROR);
    EXPECT_EQ(timestamp, 705'033'704u) << "of 5 000 001 000";
}

}  // namespace
}  // namespace tarvik::test
