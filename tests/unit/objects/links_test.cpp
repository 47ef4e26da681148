#include <functional>
#include <thread>

#include "objects/state_changes.h"
#include "objects/unique_resp_tables.h"
#include "unit/objects/fake_modules.h"

namespace tarvik::test {
namespace {

// One module that no packet ever leaves: exchanges fail at once.
class Links : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        ASSERT_EQ(Scan(), Handles{0});
    }
    void TearDown() override {
        action = nullptr;
        FakeModules::TearDown();
    }

    static std::uint32_t Create(PDU_RSC_DATA* resource = nullptr, PDU_FLAG_DATA* flag = nullptr) {
        std::uint32_t hCLL = PDU_HANDLE_UNDEF;
        EXPECT_EQ(PDUCreateComLogicalLink(0, resource, 2001, nullptr, &hCLL, flag),
                  PDU_STATUS_NOERROR);
        return hCLL;
    }
    static std::uint32_t State(std::uint32_t hCLL) {
        std::uint32_t state = 0;
        EXPECT_EQ(PDUGetStatus(0, hCLL, PDU_HANDLE_UNDEF, &state, nullptr, nullptr),
                  PDU_STATUS_NOERROR);
        return state;
    }
    static void Drain(std::uint32_t hCLL, const std::function<void(const PDU_EVENT_ITEM&)>& look) {
        PDU_EVENT_ITEM* item = nullptr;
        while (PDUGetEventItem(0, hCLL, &item) == PDU_STATUS_NOERROR) {
            look(*item);
            PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
        }
    }
    static std::uint32_t Start(std::uint32_t hCLL, std::uint32_t type) {
        UNUM8 request[] = {0x3E, 0x00};
        std::uint32_t hCoP = 0;
        EXPECT_EQ(
            PDUStartComPrimitive(0, hCLL, type, sizeof request, request, nullptr, nullptr, &hCoP),
            PDU_STATUS_NOERROR);
        return hCoP;
    }

    static inline std::atomic<std::uint32_t> calls{0};
    static inline std::function<void(std::uint32_t hMod, std::uint32_t hCLL)> action;
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void*, void*) {
        if (action) action(hMod, hCLL);
        ++calls;
    }
};

TEST_F(Links, CreationLogsItsSteps) {
    const LogCapture log;
    ASSERT_EQ(Create(), 0u);
    EXPECT_TRUE(log.Has("[PDUCreateComLogicalLink] Called (hMod=0, resourceId=2001)"));
    EXPECT_TRUE(log.Mentions("[LogicalLinkAllocate] Created Mutex handle 0x"));
    EXPECT_TRUE(log.Mentions(" for LogicalLink #0 (Module #0)"));
    EXPECT_TRUE(log.Has("[PDUCreateComLogicalLink]   No resource data provided"));
    EXPECT_TRUE(log.Mentions("[PDUCreateComLogicalLink] Created Thread handle 0x"));
    EXPECT_TRUE(log.Mentions(" (CommThreadFunc) for LogicalLink #0"));
    EXPECT_TRUE(log.Has("[PDUCreateComLogicalLink]   Created Logical Link #0"));
    EXPECT_TRUE(log.Has("[PDUCreateComLogicalLink] Returning PDU_STATUS_NOERROR, *phCLL=0"));
    EXPECT_EQ(State(0), PDU_CLLST_OFFLINE);
}

TEST_F(Links, CreationDuringADestructIsRefused) {
    ASSERT_TRUE(ChangeLibraryState(Lifecycle::kConstructed, Lifecycle::kDestructing));
    const LogCapture log;
    std::uint32_t hCLL = 7;
    EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr),
              PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(hCLL, 7u);
    EXPECT_TRUE(
        log.Has("[PDUCreateComLogicalLink] Invalid hMod (0), module not found, Returning "
                "PDU_ERR_INVALID_HANDLE"));
    ASSERT_TRUE(ChangeLibraryState(Lifecycle::kDestructing, Lifecycle::kConstructed));
}

struct ProtocolCase {
    std::uint32_t bus_type, protocol;
    ProtocolKind kind;
    std::string name;
    std::vector<std::uint32_t> resources;
    std::string resource_line;
};

TEST_F(Links, DoipWinsWhereProtocolAndBusTypeDisagree) {
    const std::vector<ProtocolCase> cases = {
        {4000, 3000, ProtocolKind::kCan, "CAN", {2001}, "Returning CAN resource ID: 2001"},
        {4000, 0, ProtocolKind::kCan, "CAN", {2001}, "Returning CAN resource ID: 2001"},
        {0, 3000, ProtocolKind::kCan, "CAN", {2001}, "Returning CAN resource ID: 2001"},
        {4000, 3001, ProtocolKind::kDoip, "DoIP", {2002}, "Returning DoIP resource ID: 2002"},
        {4001, 3000, ProtocolKind::kDoip, "DoIP", {2002}, "Returning DoIP resource ID: 2002"},
        {0,
         0,
         ProtocolKind::kUnknown,
         "Unknown",
         {2001, 2002},
         "Returning all resources: 2001 (CAN), 2002 (DoIP)"},
        {1, 2, ProtocolKind::kUnknown, "Unknown", {}, "No matching resources found"},
    };
    for (const ProtocolCase& wanted : cases) {
        PDU_RSC_DATA resource = {wanted.bus_type, wanted.protocol, 0, nullptr};
        const std::string ids = "(BusType: " + std::to_string(wanted.bus_type) +
                                ", Protocol: " + std::to_string(wanted.protocol) + ")";
        const LogCapture log;
        const std::uint32_t hCLL = Create(&resource);
        EXPECT_TRUE(log.Has("[PDUCreateComLogicalLink]   Protocol: " + wanted.name + " " + ids));
        EXPECT_EQ(FindLink(0, hCLL)->protocolKind, wanted.kind) << ids;

        PDU_RSC_ID_ITEM* item = nullptr;
        EXPECT_EQ(PDUGetResourceIds(777, &resource, &item), PDU_STATUS_NOERROR);
        EXPECT_EQ(item->ItemType, PDU_IT_RSC_ID);
        ASSERT_EQ(item->NumModules, 1u);
        const PDU_RSC_ID_ITEM_DATA& entry = item->pResourceIdDataArray[0];
        EXPECT_EQ(entry.hMod, 777u);
        EXPECT_EQ(std::vector<std::uint32_t>(entry.pResourceIdArray,
                                             entry.pResourceIdArray + entry.NumIds),
                  wanted.resources)
            << ids;
        EXPECT_TRUE(
            log.Has("[PDUGetResourceIds] (777, BusTypeId: " + std::to_string(wanted.bus_type) +
                    ", ProtocolId: " + std::to_string(wanted.protocol) + ", NumPinData: 0)"));
        EXPECT_TRUE(log.Has("[PDUGetResourceIds]   " + wanted.resource_line));
        EXPECT_EQ(PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item)), PDU_STATUS_NOERROR);
    }
}

TEST_F(Links, CreationFlagTurnsOnRawModeAndItsChecksum) {
    struct Case {
        UNUM8 bits;
        bool raw, checksum;
    };
    for (const Case& wanted : {Case{0xC0, true, true}, Case{0x80, true, false},
                               Case{0x40, false, false}, Case{0x3F, false, false}}) {
        UNUM8 bits[4] = {wanted.bits};
        PDU_FLAG_DATA flag = {sizeof bits, bits};
        const LogCapture log;
        const std::uint32_t hCLL = Create(nullptr, &flag);
        EXPECT_EQ(FindLink(0, hCLL)->rawMode, wanted.raw);
        EXPECT_EQ(FindLink(0, hCLL)->rawChecksum, wanted.checksum);
        EXPECT_EQ(log.Has("[PDUCreateComLogicalLink]   Raw mode: Checksum ON"), wanted.checksum);
        EXPECT_EQ(log.Has("[PDUCreateComLogicalLink]   Raw mode: Checksum OFF"),
                  wanted.raw && !wanted.checksum);
    }
    UNUM8 raw = 0xC0;
    PDU_FLAG_DATA empty = {0, &raw};
    EXPECT_FALSE(FindLink(0, Create(nullptr, &empty))->rawMode);
}

TEST_F(Links, SecondConnectAndDisconnectAreRefused) {
    const std::uint32_t hCLL = Create();
    const LogCapture log;
    EXPECT_EQ(PDUDisconnect(0, hCLL), PDU_ERR_CLL_NOT_CONNECTED);
    EXPECT_TRUE(
        log.Has("[PDUDisconnect]   PDUDisconnect Logical Link #0 - already offline, "
                "Returning PDU_ERR_CLL_NOT_CONNECTED"));
    EXPECT_EQ(PDUConnect(0, hCLL), PDU_STATUS_NOERROR);
    EXPECT_EQ(State(hCLL), PDU_CLLST_ONLINE);
    EXPECT_EQ(PDUConnect(0, hCLL), PDU_ERR_CLL_CONNECTED);
    EXPECT_TRUE(
        log.Has("[PDUConnect]   PDUConnect Logical Link #0 - already online, Returning "
                "PDU_ERR_CLL_CONNECTED"));
    EXPECT_EQ(PDUDisconnect(0, hCLL), PDU_STATUS_NOERROR);
    EXPECT_EQ(State(hCLL), PDU_CLLST_OFFLINE);

    std::vector<std::uint32_t> states;
    Drain(hCLL, [&](const PDU_EVENT_ITEM& item) {
        EXPECT_EQ(item.ItemType, PDU_IT_STATUS);
        EXPECT_EQ(item.hCop, PDU_HANDLE_UNDEF);
        EXPECT_EQ(item.pCoPTag, nullptr);
        states.push_back(*static_cast<PDU_STATUS_DATA*>(item.pData));
    });
    EXPECT_EQ(states, (std::vector<std::uint32_t>{PDU_CLLST_ONLINE, PDU_CLLST_OFFLINE}));
}

TEST_F(Links, DestroyedLinkIsInvalidForEveryCall) {
    const std::uint32_t hCLL = Create();
    const LogCapture log;
    EXPECT_EQ(PDUDestroyComLogicalLink(0, hCLL), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUDestroyComLogicalLink] Called (hMod=0, hCLL=0)"));
    EXPECT_TRUE(log.Has("[PDUDestroyComLogicalLink]   Destroy Logical Link #0"));
    EXPECT_TRUE(log.Has("[PDUDestroyComLogicalLink] Returning PDU_STATUS_NOERROR"));
    EXPECT_EQ(PDUDestroyComLogicalLink(0, hCLL), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(
        log.Has("[PDUDestroyComLogicalLink]   Destroy Logical Link #0 - Returning "
                "PDU_ERR_INVALID_HANDLE"));
    EXPECT_EQ(PDUConnect(0, hCLL), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(
        log.Has("[PDUConnect]   PDUConnect Logical Link #0 - Returning PDU_ERR_INVALID_HANDLE"));
    EXPECT_EQ(PDUDisconnect(0, hCLL), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(log.Has(
        "[PDUDisconnect]   PDUDisconnect Logical Link #0 - Returning PDU_ERR_INVALID_HANDLE"));
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = nullptr;
    EXPECT_EQ(PDUGetUniqueRespIdTable(0, hCLL, &table), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(log.Has("[PDUGetUniqueRespIdTable] Returning PDU_ERR_INVALID_HANDLE"));
    PDU_UNIQUE_RESP_ID_TABLE_ITEM empty = {PDU_IT_UNIQUE_RESP_ID_TABLE, 0, nullptr};
    EXPECT_EQ(PDUSetUniqueRespIdTable(0, hCLL, &empty), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(log.Has("[PDUSetUniqueRespIdTable] Returning PDU_ERR_INVALID_HANDLE"));
    std::uint32_t hCoP = 0;
    EXPECT_EQ(
        PDUStartComPrimitive(0, hCLL, PDU_COPT_UPDATEPARAM, 0, nullptr, nullptr, nullptr, &hCoP),
        PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(PDUCancelComPrimitive(0, hCLL, 1), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(PDURegisterEventCallback(0, hCLL, OnEvent), PDU_ERR_INVALID_HANDLE);
}

TEST_F(Links, DestroyedLinkChangesNoStateAndRaisesNoEvent) {
    const std::uint32_t hCLL = Create();
    const LinkRef link = FindLink(0, hCLL);
    ASSERT_TRUE(link);
    ASSERT_EQ(PDUDestroyComLogicalLink(0, hCLL), PDU_STATUS_NOERROR);
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, OnEvent);
    calls = 0;
    SetLinkState(link.Get(), PDU_CLLST_COMM_STARTED);
    EXPECT_EQ(link->state.load(), PDU_CLLST_OFFLINE);
    EXPECT_EQ(calls.load(), 0u);
}

TEST_F(Links, LinkMayBeDestroyedInItsOwnCallback) {
    const std::uint32_t hCLL = Create();
    PDUConnect(0, hCLL);
    calls = 0;
    action = [](std::uint32_t hMod, std::uint32_t link) { PDUDestroyComLogicalLink(hMod, link); };
    const LogCapture log;
    PDURegisterEventCallback(0, hCLL, OnEvent);
    Start(hCLL, PDU_COPT_STARTCOMM);
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_EQ(calls.load(), 1u) << "of PDU_COPST_FINISHED; the link's own state is told no more";
    EXPECT_FALSE(IsLinkValid(0, hCLL));
}

TEST_F(Links, SecondCancelFindsAnInvalidState) {
    const std::uint32_t hCLL = Create();
    PDUConnect(0, hCLL);
    Drain(hCLL, [](const PDU_EVENT_ITEM&) {});
    std::atomic<std::uint32_t> hCoP{0};
    std::atomic<bool> over{false};
    action = [&](std::uint32_t hMod, std::uint32_t link) {
        Drain(link, [&](const PDU_EVENT_ITEM& item) {
            hCoP = item.hCop;
            EXPECT_EQ(PDUCancelComPrimitive(hMod, link, item.hCop), PDU_STATUS_NOERROR);
            if (item.ItemType != PDU_IT_STATUS) return;
            over = *static_cast<PDU_STATUS_DATA*>(item.pData) == PDU_COPST_CANCELLED;
        });
    };
    const LogCapture log;
    PDURegisterEventCallback(0, hCLL, OnEvent);
    Start(hCLL, PDU_COPT_SENDRECV);
    ASSERT_TRUE(Eventually([&] { return over.load(); }));
    PDURegisterEventCallback(0, hCLL, nullptr);
    const std::string id = std::to_string(hCoP.load());
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Aborting CoP id " + id));
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] CoP id " + id + " in invalid state"));
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Returning PDU_STATUS_NOERROR"));
}

// One thread keeps the module lock by its status query, and another destructs the library first.
TEST_F(Links, KeptModuleLockIsReleasedWhenItsThreadDestructsSecond) {
    const std::uint32_t hCLL = Create();
    PDUConnect(0, hCLL);
    std::atomic<bool> entered{false};
    std::atomic<bool> leave{false};
    action = [&](std::uint32_t, std::uint32_t) {
        entered = true;
        EXPECT_TRUE(Eventually([&] { return leave.load(); }));
    };
    PDURegisterEventCallback(0, hCLL, OnEvent);
    const std::uint32_t hCoP = Start(hCLL, PDU_COPT_SENDRECV);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    std::uint32_t state = 0;
    ASSERT_EQ(PDUGetStatus(0, hCLL, hCoP, &state, nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(state, PDU_COPST_EXECUTING);
    std::thread other([] { EXPECT_EQ(PDUDestruct(), PDU_STATUS_NOERROR); });
    EXPECT_TRUE(Eventually([] { return LibraryState() == Lifecycle::kDestructing; }));
    EXPECT_EQ(PDUDestruct(), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
    leave = true;
    other.join();
}

TEST_F(Links, StartLogsItsArgumentsAndTheHandle) {
    const std::uint32_t hCLL = Create();
    PDUConnect(0, hCLL);
    const LogCapture log;
    const std::uint32_t hCoP = Start(hCLL, PDU_COPT_UPDATEPARAM);
    EXPECT_TRUE(log.Mentions("[PDUStartComPrimitive] (0, 0, 32771, 2, "));
    EXPECT_TRUE(log.Has("[PDUStartComPrimitive]   PDU_COPT_UPDATEPARAM"));
    EXPECT_TRUE(log.Has("[PDUStartComPrimitive] Returning PDU_STATUS_NOERROR, *phCoP=" +
                        std::to_string(hCoP)));
}

TEST_F(Links, RequestWithoutAResponseTableEndsWithAnError) {
    const std::uint32_t hCLL = Create();
    PDUConnect(0, hCLL);
    EXPECT_EQ(PDUSetUniqueRespIdTable(0, hCLL, nullptr), PDU_STATUS_NOERROR);
    const LogCapture log;
    const std::uint32_t hCoP = Start(hCLL, PDU_COPT_SENDRECV);
    EXPECT_TRUE(
        Eventually([&] { return log.Has("[CommThreadFunc] free CoP #" + std::to_string(hCoP)); }));
    EXPECT_TRUE(log.Mentions("   Failed to duplicate UniqueRespTable"));
    std::vector<std::uint32_t> errors;
    Drain(hCLL, [&](const PDU_EVENT_ITEM& item) {
        if (item.ItemType != PDU_IT_ERROR) return;
        errors.push_back(static_cast<PDU_ERROR_DATA*>(item.pData)->ErrorCodeId);
    });
    EXPECT_EQ(errors, std::vector<std::uint32_t>{257});
}

TEST_F(Links, ReturnedResponseTableIsACopy) {
    const std::uint32_t hCLL = Create();
    for (int round = 0; round < 2; ++round) {
        PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = nullptr;
        ASSERT_EQ(PDUGetUniqueRespIdTable(0, hCLL, &table), PDU_STATUS_NOERROR);
        ASSERT_EQ(table->NumEntries, 1u);
        EXPECT_EQ(table->pUniqueData[0].UniqueRespIdentifier, PDU_ID_UNDEF);
        EXPECT_EQ(table->pUniqueData[0].NumParamItems, 24u);
        table->pUniqueData[0].UniqueRespIdentifier = 5;
        EXPECT_EQ(PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(table)), PDU_STATUS_NOERROR);
    }
}

TEST_F(Links, NewTableIsLoggedAndAnEmptyOneIsAccepted) {
    const std::uint32_t hCLL = Create();
    std::uint32_t id = 0x7E8;
    PDU_PARAM_ITEM param = {PDU_IT_PARAM, kCpCanRespUSDTId, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, &id};
    PDU_ECU_UNIQUE_RESP_DATA entry = {9, 1, &param};
    PDU_UNIQUE_RESP_ID_TABLE_ITEM table = {PDU_IT_UNIQUE_RESP_ID_TABLE, 1, &entry};
    const LogCapture log;
    EXPECT_EQ(PDUSetUniqueRespIdTable(0, hCLL, &table), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUSetUniqueRespIdTable] Called (hMod=0, hCLL=0, entries=1)"));
    EXPECT_TRUE(log.Has("[DumpRespIdTable]"));
    EXPECT_TRUE(log.Has("[DumpRespIdTable]  Table 0"));
    EXPECT_TRUE(log.Has("[DumpRespIdTable]    'CP_CanRespUSDTId' = 2024 (0x000007E8)"));
    table.NumEntries = 0;
    EXPECT_EQ(PDUSetUniqueRespIdTable(0, hCLL, &table), PDU_STATUS_NOERROR);
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* copy = nullptr;
    ASSERT_EQ(PDUGetUniqueRespIdTable(0, hCLL, &copy), PDU_STATUS_NOERROR);
    EXPECT_EQ(copy->NumEntries, 0u);
    PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(copy));
}

}  // namespace
}  // namespace tarvik::test
