#include <cstdint>
#include <cstdlib>
#include <vector>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/params.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/waiting.h"

using namespace conformance;

namespace {

using Lifecycle = LoadedLibrary;
using Constructed = ConstructedLibrary;

void ExpectHandleFunctionsFindNothing(UNUM32 hMod) {
    UNUM32 value = 0;
    PDU_VERSION_DATA version{};
    PDU_UNIQUE_RESP_ID_TABLE_ITEM table = {PDU_IT_UNIQUE_RESP_ID_TABLE, 0, nullptr};
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* got = nullptr;
    PDU_RSC_DATA resource{};
    const Functions& pdu = Pdu();
    EXPECT_EQ(pdu.PDUGetVersion(hMod, &version), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUGetTimestamp(hMod, &value), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUModuleConnect(hMod), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUModuleDisconnect(hMod), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUCreateComLogicalLink(hMod, &resource, PDU_ID_UNDEF, nullptr, &value, nullptr),
              PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUDestroyComLogicalLink(hMod, 0), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUConnect(hMod, 0), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUDisconnect(hMod, 0), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(
        pdu.PDUStartComPrimitive(hMod, 0, PDU_COPT_SENDRECV, 0, nullptr, nullptr, nullptr, &value),
        PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUCancelComPrimitive(hMod, 0, 1), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUGetUniqueRespIdTable(hMod, 0, &got), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUSetUniqueRespIdTable(hMod, 0, &table), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUGetStatus(hMod, 0, PDU_HANDLE_UNDEF, &value, nullptr, nullptr),
              PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(pdu.PDUGetStatus(hMod, 0, 1, &value, nullptr, nullptr), PDU_ERR_INVALID_HANDLE);
}

void ExpectNoEvents() {
    auto* event = reinterpret_cast<PDU_EVENT_ITEM*>(0x1234);
    EXPECT_EQ(Pdu().PDUGetEventItem(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &event),
              PDU_ERR_EVENT_QUEUE_EMPTY);
    EXPECT_EQ(event, nullptr);
    EXPECT_EQ(Pdu().PDUGetEventItem(0, PDU_HANDLE_UNDEF, &event), PDU_ERR_EVENT_QUEUE_EMPTY);
    EXPECT_EQ(Pdu().PDUGetEventItem(0, 0, &event), PDU_ERR_EVENT_QUEUE_EMPTY);
}

void ExpectAnswersWithoutConstruct() {
    ExpectHandleFunctionsFindNothing(0);
    ExpectNoEvents();
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);

    auto* const untouched = reinterpret_cast<PDU_MODULE_ITEM*>(0x1234);
    PDU_MODULE_ITEM* modules = untouched;
    EXPECT_EQ(Pdu().PDUGetModuleIds(&modules), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
    EXPECT_EQ(modules, untouched);
    PDU_ITEM any = {PDU_IT_MODULE_ID};
    EXPECT_EQ(Pdu().PDUDestroyItem(&any), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
    EXPECT_EQ(Pdu().PDUDestroyItem(nullptr), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);

    EXPECT_EQ(Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr),
              PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDURegisterEventCallback(0, 0, nullptr), PDU_ERR_INVALID_HANDLE);

    EXPECT_EQ(Pdu().PDUIoCtl(0, 0, 5000, nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(ParamId("CP_P2Max"), 12u);
    PDU_PARAM_ITEM* param = nullptr;
    EXPECT_EQ(Pdu().PDUGetComParam(0, 0, 12, &param), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUGetComParam(0, 0, 0, &param), PDU_ERR_COMPARAM_NOT_SUPPORTED);
    PDU_PARAM_ITEM unknown = {PDU_IT_PARAM, 229, PDU_PT_UNUM32, 0, nullptr};
    EXPECT_EQ(Pdu().PDUSetComParam(0, 0, &unknown), PDU_ERR_INVALID_PARAMETERS);
}

// The library keeps resource lists until they are destroyed, which requires a construct.
void ExpectResourceListWithoutConstruct() {
    PDU_RSC_DATA all{};
    PDU_RSC_ID_ITEM* resources = nullptr;
    ASSERT_EQ(Pdu().PDUGetResourceIds(0, &all, &resources), PDU_STATUS_NOERROR);
    ASSERT_NE(resources, nullptr);
    EXPECT_EQ(resources->NumModules, 1u);
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(resources)), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
}

}  // namespace

FRESH_PROCESS_TEST(FreshLibrary, EveryFunctionReturnsBeforeTheFirstConstruct) {
    Settings().Store();
    ExpectAnswersWithoutConstruct();
    EXPECT_FALSE(FileExists(LogPath()));
    ExpectResourceListWithoutConstruct();
}

TEST_F(Lifecycle, EveryFunctionReturnsAfterDestruct) {
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    ExpectAnswersWithoutConstruct();
    EXPECT_TRUE(log.Has(
        "[PDUGetModuleIds] PDU API not constructed, Returning PDU_ERR_PDUAPI_NOT_CONSTRUCTED"));
    EXPECT_EQ(log.Count("[PDUDestroyItem] PDU API not constructed, Returning "
                        "PDU_ERR_PDUAPI_NOT_CONSTRUCTED"),
              2u);
    ExpectResourceListWithoutConstruct();
}

TEST_F(Lifecycle, ConstructLogsItsStepsInOrder) {
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);  // opens the log
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.MissingOf({
                  "[PDUConstruct] PDUConstruct called ('(null)', *)",
                  "[InitializeQueue] Initialized CRITICAL_SECTION for queue at 0x*",
                  "[AllocParamItems] Item: CP_CanTransmissionTime",
                  "[AllocParamItems] Item: CP_ECULayerShortName",
                  "[DummyInit] Initialized CRITICAL_SECTION for DummyQueues at 0x*",
                  "[DummyInit] Initialized CRITICAL_SECTION DummySessionLock at 0x*",
                  "[DummyStart] Start",
                  "[PDUConstruct] Returning PDU_STATUS_NOERROR",
              }),
              "");
    EXPECT_EQ(log.CountLike("[AllocParamItems] Item: *"), 228u);
}

TEST_F(Lifecycle, OptionStringAndTagAreLogged) {
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    char options[] = "a='1' b='%s'";
    ASSERT_EQ(Pdu().PDUConstruct(options, reinterpret_cast<void*>(0x1234)), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.HasLike("[PDUConstruct] PDUConstruct called ('a='1' b='%s'', *1234)"));
}

TEST_F(Lifecycle, SecondConstructIsRefusedAndLogsNothing) {
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    SetNumber("CP_P2Max", 77);
    const LogCapture log;
    EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_ERR_SHARING_VIOLATION);
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(GetNumber("CP_P2Max"), 77u);
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
}

TEST_F(Lifecycle, DestructWithoutConstructIsRefused) {
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
    EXPECT_EQ(log.Lines(),
              (std::vector<std::string>{
                  "[PDUDestruct] Called",
                  "[PDUDestruct] Not constructed, returning PDU_ERR_PDUAPI_NOT_CONSTRUCTED",
              }));
}

TEST_F(Lifecycle, DestructLogsItsStepsInOrder) {
    Settings{.dummyDevice = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.MissingOf({
                  "[PDUDestruct] Called",
                  "[DummyStop] Wait for DummyTxThread",
                  "[DummyStop] Closing Thread handle 0x* (DummyTxThread)",
                  "[DummyStop] Done",
                  "[DummyDeinit] Deleted CRITICAL_SECTION for DummyQueues",
                  "[DummyDeinit] Deleted CRITICAL_SECTION DummySessionLock",
                  "[DummyDeinit] Done",
                  "[PDUDestruct] Clearing ModuleDevices array (0 modules present)",
                  "[PDUDestruct] ModuleDevices array cleared, count reset to 0",
                  "[PDUDestruct] Returning PDU_STATUS_NOERROR",
              }),
              "");
}

TEST_F(Lifecycle, ConstructAfterDestructRunsEveryInitAndStartAgain) {
    Settings{.useSerial = true, .dummyDevice = true}.Store();
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        const LogCapture log;
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        EXPECT_EQ(log.MissingOf({
                      "[DummyStop] Done",
                      "[DummyDeinit] Done",
                      "[PDUConstruct] PDUConstruct called *",
                      "[SerialInit] Initialized CRITICAL_SECTION SerialSessionLock at 0x*",
                      "[DummyInit] Initialized CRITICAL_SECTION DummySessionLock at 0x*",
                      "[SerialStart] Done",
                      "[DummyStart] Done",
                  }),
                  "");
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    }
}

TEST_F(Lifecycle, EveryTransportIsInitialisedAndAskedToStartWithAllSwitchesOff) {
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.Count("[SerialStart] Start"), 1u);
    EXPECT_EQ(log.Count("[DummyStart] Start"), 1u);
    EXPECT_EQ(log.CountLike("[*Start] Done"), 0u);
    const auto modules = GetModuleIds();
    ASSERT_NE(modules, nullptr);
    EXPECT_EQ(modules->ItemType, PDU_IT_MODULE_ID);
    EXPECT_EQ(modules->NumEntries, 0u);
    EXPECT_TRUE(log.Has("[PDUGetModuleIds] Returning PDU_STATUS_NOERROR, NumEntries=0"));
}

TEST_F(Constructed, InvalidModuleHandlesAreRefusedByEveryFunctionThatTakesOne) {
    for (const UNUM32 hMod : {0u, 255u, 256u, 0x7FFFFFFFu, PDU_HANDLE_UNDEF}) {
        ExpectHandleFunctionsFindNothing(hMod);
    }
}

TEST_F(Constructed, InvalidModuleHandlesAreLoggedByTheirKind) {
    PDU_VERSION_DATA version{};
    UNUM32 value = 0;
    const LogCapture log;
    Pdu().PDUGetVersion(PDU_HANDLE_UNDEF, &version);
    Pdu().PDUGetVersion(256, &version);
    Pdu().PDUGetTimestamp(PDU_HANDLE_UNDEF, &value);
    Pdu().PDUGetTimestamp(0, &value);
    Pdu().PDUGetStatus(256, 0, PDU_HANDLE_UNDEF, &value, nullptr, nullptr);
    Pdu().PDUGetStatus(0, 0, 999, &value, nullptr, nullptr);
    Pdu().PDUModuleConnect(256);
    Pdu().PDUModuleDisconnect(PDU_HANDLE_UNDEF);
    Pdu().PDUCreateComLogicalLink(PDU_HANDLE_UNDEF, nullptr, 2001, nullptr, &value, nullptr);
    Pdu().PDUCreateComLogicalLink(3, nullptr, 2001, nullptr, &value, nullptr);
    const char undefined[] = "Invalid hMod (PDU_HANDLE_UNDEF), Returning PDU_ERR_INVALID_HANDLE";
    const char not_found[] = ", module not found, Returning PDU_ERR_INVALID_HANDLE";
    EXPECT_EQ(log.MissingOf({
                  std::string("[PDUGetVersion] ") + undefined,
                  std::string("[PDUGetVersion] Invalid hMod (256)") + not_found,
                  std::string("[PDUGetTimestamp] ") + undefined,
                  std::string("[PDUGetTimestamp] Invalid hMod (0)") + not_found,
                  "[PDUGetStatus] (256, 0, ...)",
                  "[PDUGetStatus] Invalid hMod, Returning PDU_ERR_INVALID_HANDLE",
                  "[PDUGetStatus] (0, 0, ...)",
                  "[PDUGetStatus] hCoP not found, Returning PDU_ERR_INVALID_HANDLE",
                  "[PDUModuleConnect] Called (256)",
                  "[PDUModuleConnect] Returning PDU_ERR_INVALID_HANDLE",
                  "[PDUModuleDisconnect] Called (4294967295)",
                  "[PDUModuleDisconnect] Returning PDU_ERR_INVALID_HANDLE",
                  "[PDUCreateComLogicalLink] Called (hMod=4294967295, resourceId=2001)",
                  std::string("[PDUCreateComLogicalLink] ") + undefined,
                  std::string("[PDUCreateComLogicalLink] Invalid hMod (3)") + not_found,
              }),
              "");
}

TEST_F(Constructed, GetStatusWritesTimestampAndExtraInfoEvenWhenItFails) {
    UNUM32 status = 0xAB;
    UNUM32 timestamp = 0;
    UNUM32 extra = 0xCD;
    EXPECT_EQ(Pdu().PDUGetStatus(256, 0, PDU_HANDLE_UNDEF, &status, &timestamp, &extra),
              PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(status, 0xABu);
    EXPECT_EQ(extra, 0u);
    // Either clock may be slightly ahead of the other.
    const auto difference = static_cast<SNUM32>(static_cast<UNUM32>(TickMs() * 1000) - timestamp);
    EXPECT_LT(std::abs(difference), 60'000'000);
    extra = 0xCD;
    EXPECT_EQ(Pdu().PDUGetStatus(0, 0, 77, &status, &timestamp, &extra), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(extra, 0u);
    EXPECT_EQ(Pdu().PDUGetStatus(256, 0, PDU_HANDLE_UNDEF, nullptr, nullptr, nullptr),
              PDU_ERR_INVALID_HANDLE);
}

TEST_F(Constructed, FirstHundredScansFindNothing) {
    for (int i = 0; i < 100; ++i) {
        const auto modules = GetModuleIds();
        ASSERT_NE(modules, nullptr);
        ASSERT_EQ(modules->NumEntries, 0u);
    }
}

TEST_F(Lifecycle, ConcurrentConstructsAndDestructsLeaveAWorkingLibrary) {
    Settings{.dummyDevice = true}.Store();
    {
        const auto hammer = [] {
            for (int i = 0; i < 20; ++i) {
                Pdu().PDUConstruct(nullptr, nullptr);
                Pdu().PDUDestruct();
            }
        };
        Thread one(hammer);
        Thread two(hammer);
    }
    Pdu().PDUDestruct();
    EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
}

TEST_F(Lifecycle, DestructEndsInTimeWhileAnotherThreadScans) {
    Settings{.useSerial = true, .dummyDevice = true}.Store();
    std::vector<PDU_ITEM*> left_over;  // could not be destroyed before the destruct
    for (int round = 0; round < 5; ++round) {
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        Gate scanning;
        Thread scanner([&] {
            PDU_MODULE_ITEM* modules = nullptr;
            scanning.Open();
            while (Pdu().PDUGetModuleIds(&modules) == PDU_STATUS_NOERROR) {
                auto* const item = reinterpret_cast<PDU_ITEM*>(modules);
                if (Pdu().PDUDestroyItem(item) != PDU_STATUS_NOERROR) left_over.push_back(item);
            }
        });
        ASSERT_TRUE(scanning.Wait());
        EXPECT_TRUE(EndsInTime([] { EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }));
    }
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    for (PDU_ITEM* item : left_over)
        EXPECT_EQ(Pdu().PDUDestroyItem(item), PDU_STATUS_NOERROR);
}
