#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/system.h"
#include "conformance/framework/waiting.h"
#include "conformance/replug/recovery.h"

using namespace conformance;

namespace {

constexpr char kMac[] = "02:42:52:4E:58:01";

class Modules : public SerialDongle {
protected:
    // Scans until `line` is logged.
    bool ScanUntil(const std::string& line) {
        const LogCapture log;
        return EventuallyConnected([&] {
            GetModuleIds();
            return log.Has(line);
        });
    }

    // One scan. False if the dongle did not answer within 200 ms, as may happen on a busy machine.
    static bool ScanIsAnswered() {
        const LogCapture log;
        GetModuleIds();
        return HasAnswered(log);
    }
    static bool HasAnswered(const LogCapture& log) {
        return log.HasLike("[add_client_cbr] add_client_cbr: detected client *");
    }
};

}  // namespace

TEST_F(Modules, ListDescribesTheDongle) {
    const auto modules = GetModuleIds();
    ASSERT_NE(modules, nullptr);
    EXPECT_EQ(modules->ItemType, PDU_IT_MODULE_ID);
    ASSERT_EQ(modules->NumEntries, 1u);
    const PDU_MODULE_DATA& module = modules->pModuleData[0];
    EXPECT_EQ(module.ModuleTypeId, 1u);
    EXPECT_EQ(module.hMod, 0u);
    EXPECT_EQ(module.ModuleStatus, PDU_MODST_AVAIL);
    EXPECT_STREQ(module.pVendorModuleName,
                 "VendorName='Tarvik' ModuleName='Brennix demo' SerialNumber='02:42:52:4E:58:01' "
                 "PersonalVciID='Brennix demo' ConnectionType='USB' Status='available'");
    EXPECT_STREQ(module.pVendorAdditionalInfo, "Interface='USB'");
}

TEST_F(Modules, ListWithoutAPointerIsRefused) {
    EXPECT_EQ(Pdu().PDUGetModuleIds(nullptr), PDU_ERR_INVALID_PARAMETERS);
}

TEST_F(Modules, DescriptionIsTheSameOnEveryCall) {
    const auto first = GetModuleIds();
    Pdu().PDUModuleConnect(hMod);
    const auto second = GetModuleIds();
    ASSERT_EQ(second->NumEntries, 1u);
    EXPECT_NE(first->pModuleData, second->pModuleData);
    EXPECT_EQ(first->pModuleData[0].hMod, second->pModuleData[0].hMod);
    EXPECT_STREQ(first->pModuleData[0].pVendorModuleName, second->pModuleData[0].pVendorModuleName);
    EXPECT_EQ(second->pModuleData[0].ModuleStatus, PDU_MODST_AVAIL);
}

TEST_F(Modules, ScanIsLoggedFromTransportsToTable) {
    std::optional<LogCapture> capture;
    ASSERT_TRUE(Eventually([&] {
        capture.emplace();
        GetModuleIds();
        return HasAnswered(*capture);
    }));
    const LogCapture& log = *capture;
    EXPECT_EQ(log.MissingOf({
                  "[PDUGetModuleIds] Called",
                  "[UpdateModuleList] Serial UpdateDevices (timeout=200)",
                  "[UpdateModuleList] Detected 1 devices from transports",
                  "[UpdateModuleList] Updating existing device at index 0",
                  "[UpdateModuleList] Update complete: 1 devices ready",
                  "[PDUGetModuleIds] Returning PDU_STATUS_NOERROR, NumEntries=1",
              }),
              "");
    for (const char* line : {"[UpdateModuleList] Cloud UpdateDevices (timeout=500)",
                             "[UpdateModuleList] BLE UpdateDevices (timeout=2000)",
                             "[UpdateModuleList] Dummy UpdateDevices (timeout=100)"}) {
        EXPECT_EQ(log.Count(line), 1u) << line;
    }
    EXPECT_TRUE(log.Has("[add_client_cbr] add_client_cbr: detected client 'Brennix demo' (MAC: " +
                        std::string(kMac) + ", Transport: 1)"));
}

TEST_F(Modules, NewDongleIsAddedAndItsQueuesPrepared) {
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}));
    EXPECT_EQ(log.MissingOf({
                  "[UpdateModuleList] Adding NEW device at index 0",
                  "[InitializeQueue] Initialized CRITICAL_SECTION for queue at 0x*",
                  "[InitializeDeviceQueues] Initialized queues for device (Transport: 1)",
                  "[UpdateModuleList] Update complete: 1 devices ready",
              }),
              "");
}

TEST_F(Modules, DestructClearsTheTable) {
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(
        log.MissingOf({
            "[PDUDestruct] Clearing ModuleDevices array (1 modules present)",
            "[PDUDestruct] Clearing module slot 0 (Transport: 1, MAC: " + std::string(kMac) + ")",
            "[PDUDestruct] ModuleDevices array cleared, count reset to 0",
        }),
        "");
    UNUM32 status = 0;
    EXPECT_EQ(Pdu().PDUGetStatus(hMod, 0, PDU_HANDLE_UNDEF, &status, nullptr, nullptr),
              PDU_ERR_INVALID_HANDLE);
}

TEST_F(Modules, ConnectAndDisconnectChangeOnlyTheStatus) {
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_AVAIL);
    const std::uint64_t before = simulator.Count("in CREQ");
    const LogCapture log;
    EXPECT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_READY);
    EXPECT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_READY);
    EXPECT_EQ(Pdu().PDUModuleDisconnect(hMod), PDU_STATUS_NOERROR);
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_AVAIL);
    EXPECT_EQ(log.Count("[PDUModuleConnect] Called (0)"), 2u);
    EXPECT_EQ(log.Count("[PDUModuleDisconnect] Called (0)"), 1u);
    // This transport has neither operation, so their lines are missing.
    EXPECT_FALSE(log.HasLike("[PDUModuleConnect] Addressing device*"));
    EXPECT_FALSE(log.HasLike("[PDUModuleDisconnect] Disconnecting via*"));
    EXPECT_EQ(simulator.Count("in CREQ"), before);
}

TEST_F(Modules, ReadyModuleStaysReadyWhenAScanSeesIt) {
    ASSERT_TRUE(Eventually([this] {
        EXPECT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
        EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_READY);
        return ScanIsAnswered();
    }));
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_READY);
}

TEST_F(Modules, VersionRecordIsFixedAndKeepsTheBytesAfterItsTexts) {
    PDU_VERSION_DATA version;
    std::memset(&version, 0xEE, sizeof version);
    ASSERT_EQ(Pdu().PDUGetVersion(hMod, &version), PDU_STATUS_NOERROR);
    EXPECT_EQ(version.MVCI_Part1StandardVersion, 0x02020200u);
    EXPECT_EQ(version.MVCI_Part2StandardVersion, 0x02020200u);
    EXPECT_EQ(version.HwSerialNumber, 1u);
    EXPECT_EQ(version.HwVersion, 0x01000000u);
    EXPECT_EQ(version.HwDate, 0x36051600u);
    EXPECT_EQ(version.HwInterface, 0u);
    EXPECT_EQ(version.FwVersion, 0x00010000u);
    EXPECT_EQ(version.FwDate, 0x36051600u);
    EXPECT_EQ(version.PDUApiSwVersion, 0x00010000u);
    EXPECT_EQ(version.PDUApiSwDate, 0x36051600u);
    const auto expect_text = [](const CHAR8(&field)[64], const std::string& text) {
        EXPECT_EQ(field, text);
        for (std::size_t i = text.size() + 1; i < sizeof field; ++i) {
            EXPECT_EQ(static_cast<unsigned char>(field[i]), 0xEE) << text << " at " << i;
        }
    };
    expect_text(version.HwName, "Brennix");
    expect_text(version.FwName, "v0.1");
    expect_text(version.VendorName, "Tarvik");
    expect_text(version.PDUApiSwName, "Tarvik D-PDU API");
}

TEST_F(Modules, TimestampIsTheTickInMicroseconds) {
    UNUM32 timestamp = 0;
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUGetTimestamp(hMod, &timestamp), PDU_STATUS_NOERROR);
    EXPECT_EQ(timestamp % 8, 0u);  // 2^32 and a millisecond are multiples of 8
    const auto difference = static_cast<SNUM32>(static_cast<UNUM32>(TickMs() * 1000) - timestamp);
    EXPECT_LT(std::abs(difference), 60'000'000);
    EXPECT_EQ(log.LinesOf("PDUGetTimestamp"),
              (std::vector<std::string>{
                  "[PDUGetTimestamp] Called (hMod=0)",
                  "[PDUGetTimestamp] Returning PDU_STATUS_NOERROR, *pTimestamp=" +
                      std::to_string(timestamp),
              }));
}

TEST_F(Modules, TimestampWithoutADestinationSucceeds) {
    EXPECT_EQ(Pdu().PDUGetTimestamp(hMod, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUGetTimestamp(PDU_HANDLE_UNDEF, nullptr), PDU_ERR_INVALID_HANDLE);
}

TEST_F(Modules, VanishedDongleKeepsItsHandleAndIsListedAsAvailable) {
    const LogCapture log;
    simulator.Unplug();
    StdoutCapture console;
    ASSERT_TRUE(ScanUntilNotAvailable(hMod));
    const auto modules = GetModuleIds();
    const std::string line = "Device at index 0 is no longer present - marking unavailable";
    EXPECT_TRUE(console.Has(line + "\n"));
    EXPECT_TRUE(log.Has("[UpdateModuleList] " + line));
    ASSERT_EQ(modules->NumEntries, 1u);
    EXPECT_EQ(modules->pModuleData[0].hMod, hMod);
    EXPECT_EQ(modules->pModuleData[0].ModuleStatus, PDU_MODST_AVAIL);
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_NOT_AVAIL);
    PDU_VERSION_DATA version{};
    EXPECT_EQ(Pdu().PDUGetVersion(hMod, &version), PDU_STATUS_NOERROR);
}

TEST_F(Modules, ReturnedDongleIsNotMadeAvailableByAScan) {
    simulator.Unplug();
    ASSERT_TRUE(ScanUntilNotAvailable(hMod));
    simulator.Replug();
    const std::string line =
        "Device at index 0 is now present again, but that transition is not allowed";
    StdoutCapture console;
    ASSERT_TRUE(ScanUntil("[UpdateModuleList] " + line));
    EXPECT_TRUE(console.Has(line + "\n"));
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_NOT_AVAIL);
}

TEST_F(Modules, ReturnedDongleIsAvailableAfterANewConstruct) {
    simulator.Unplug();
    ASSERT_TRUE(ScanUntilNotAvailable(hMod));
    simulator.Replug();
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}));
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_AVAIL);
}

TEST_F(Modules, DongleOfAnUnknownModelIsIgnored) {
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    for (const UNUM32 model : {0x0Eu, 0u, 4u, 6u, 0x1001u}) {
        simulator.Command("dongle {\"model\": " + std::to_string(model) + "}");
        Settings{.useSerial = true}.Store();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        char line[80];
        std::snprintf(line, sizeof line,
                      "[add_client_cbr] Ignoring unsupported device model: 0x%08X", model);
        const LogCapture log;
        EXPECT_TRUE(EventuallyConnected([&] {
            const auto modules = GetModuleIds();
            EXPECT_EQ(modules->NumEntries, 0u);
            return log.Has(line);
        })) << line;
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    }
}

TEST_F(Modules, DonglesOfKnownModelsAreAccepted) {
    for (const UNUM32 model : {5u, 13u, 0x1000u}) {
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        simulator.Command("dongle {\"model\": " + std::to_string(model) + "}");
        ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true})) << model;
    }
}

TEST_F(Modules, DestroyingTheListDoesNotAffectTheModule) {
    ASSERT_TRUE(Eventually([this] {
        // Makes the module available again if the last scan was not answered.
        EXPECT_EQ(Pdu().PDUModuleDisconnect(hMod), PDU_STATUS_NOERROR);
        return ScanIsAnswered();
    }));
    EXPECT_EQ(ModuleStatus(hMod), PDU_MODST_AVAIL);
    const auto again = GetModuleIds();
    EXPECT_EQ(again->NumEntries, 1u);
}
