#include <string>
#include <vector>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/params.h"
#include "conformance/framework/waiting.h"

using namespace conformance;

namespace {

class Links : public SerialDongle {
protected:
    // Creates a link with these arguments and destroys it. Returns what the creation logged.
    std::vector<std::string> LinesOfCreation(PDU_RSC_DATA* resource, PDU_FLAG_DATA* flag,
                                             UNUM32 resource_id = PDU_ID_UNDEF) {
        const LogCapture log;
        UNUM32 hCLL = PDU_HANDLE_UNDEF;
        EXPECT_EQ(Pdu().PDUCreateComLogicalLink(hMod, resource, resource_id, nullptr, &hCLL, flag),
                  PDU_STATUS_NOERROR);
        std::vector<std::string> lines = log.LinesOf("PDUCreateComLogicalLink");
        EXPECT_EQ(Pdu().PDUDestroyComLogicalLink(hMod, hCLL), PDU_STATUS_NOERROR);
        return lines;
    }

    void ExpectEveryCallRefused(UNUM32 hCLL) {
        UNUM32 value = 0;
        PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = nullptr;
        UniqueTable own;
        own.ControlUnit(1, 0x7E0, 0x7E8);
        const Functions& pdu = Pdu();
        EXPECT_EQ(pdu.PDUConnect(hMod, hCLL), PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(pdu.PDUDisconnect(hMod, hCLL), PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(pdu.PDUStartComPrimitive(hMod, hCLL, PDU_COPT_UPDATEPARAM, 0, nullptr, nullptr,
                                           nullptr, &value),
                  PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(pdu.PDUCancelComPrimitive(hMod, hCLL, 1), PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(pdu.PDUGetUniqueRespIdTable(hMod, hCLL, &table), PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(pdu.PDUSetUniqueRespIdTable(hMod, hCLL, own.Item()), PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(pdu.PDURegisterEventCallback(hMod, hCLL, nullptr), PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(pdu.PDUDestroyComLogicalLink(hMod, hCLL), PDU_ERR_INVALID_HANDLE);
    }
};

bool Contains(const std::vector<std::string>& lines, const std::string& line) {
    for (const std::string& one : lines) {
        if (one == "[PDUCreateComLogicalLink]   " + line) return true;
    }
    return false;
}

std::vector<UNUM32> StatesIn(Link& link) {
    std::vector<UNUM32> states;
    while (const auto event = NextEvent(link.hMod(), link.hCLL())) {
        EXPECT_EQ(event->ItemType, PDU_IT_STATUS);
        EXPECT_EQ(event->hCop, PDU_HANDLE_UNDEF);
        EXPECT_EQ(event->pCoPTag, nullptr);
        states.push_back(StatusOf(*event));
    }
    return states;
}

}  // namespace

TEST_F(Links, HandlesCountUpAndAreNeverReused) {
    Link first(hMod);
    Link second(hMod);
    EXPECT_EQ(first.hCLL(), 0u);
    EXPECT_EQ(second.hCLL(), 1u);
    EXPECT_EQ(first.Destroy(), PDU_STATUS_NOERROR);
    Link third(hMod);
    EXPECT_EQ(third.hCLL(), 2u);
    EXPECT_EQ(second.State(), PDU_CLLST_OFFLINE);
}

TEST_F(Links, HandlesRestartAfterANewConstruct) {
    { const Link link(hMod); }
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}));
    const Link link(hMod);
    EXPECT_EQ(link.hCLL(), 0u);
}

TEST_F(Links, CreationIsLogged) {
    const LogCapture log;
    const Link link(hMod);
    EXPECT_EQ(log.MissingOf({
                  "[PDUCreateComLogicalLink] Called (hMod=0, resourceId=4294967294)",
                  "[LogicalLinkAllocate] Created Mutex handle 0x* for LogicalLink #0 (Module #0)",
                  "[PDUCreateComLogicalLink]   Protocol: CAN (BusType: 4000, Protocol: 3000)",
                  "[PDUCreateComLogicalLink] Created Thread handle 0x* (CommThreadFunc) for "
                  "LogicalLink #0",
                  "[PDUCreateComLogicalLink]   Created Logical Link #0",
                  "[PDUCreateComLogicalLink] Returning PDU_STATUS_NOERROR, *phCLL=0",
              }),
              "");
    EXPECT_EQ(log.CountLike("[InitializeQueue] Initialized CRITICAL_SECTION for queue at 0x*"), 4u);
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] starting"); }));
}

TEST_F(Links, ProtocolFollowsTheResourceDataAndDoipWins) {
    struct Row {
        UNUM32 bus_type;
        UNUM32 protocol;
        const char* line;
    };
    for (const Row& row : {Row{4000, 3001, "Protocol: DoIP (BusType: 4000, Protocol: 3001)"},
                           Row{4001, 3000, "Protocol: DoIP (BusType: 4001, Protocol: 3000)"},
                           Row{4000, 7, "Protocol: CAN (BusType: 4000, Protocol: 7)"},
                           Row{7, 3000, "Protocol: CAN (BusType: 7, Protocol: 3000)"},
                           Row{7, 8, "Protocol: Unknown (BusType: 7, Protocol: 8)"},
                           Row{0, 0, "Protocol: Unknown (BusType: 0, Protocol: 0)"}}) {
        PDU_RSC_DATA resource = {row.bus_type, row.protocol, 0, nullptr};
        EXPECT_TRUE(Contains(LinesOfCreation(&resource, nullptr), row.line)) << row.line;
    }
}

TEST_F(Links, NullResourceDataWithAResourceIdIsAccepted) {
    const auto lines = LinesOfCreation(nullptr, nullptr, 2001);
    EXPECT_EQ(lines.front(), "[PDUCreateComLogicalLink] Called (hMod=0, resourceId=2001)");
    EXPECT_TRUE(Contains(lines, "No resource data provided"));
}

TEST_F(Links, CreationFlagSelectsRawModeAndItsChecksum) {
    PDU_RSC_DATA resource = CanResource();
    struct Row {
        UNUM8 flag;
        const char* line;  // null: no raw mode
    };
    for (const Row& row : {Row{0x80, "Raw mode: Checksum OFF"}, Row{0xC0, "Raw mode: Checksum ON"},
                           Row{0x40, nullptr}, Row{0x00, nullptr}, Row{0x3F, nullptr}}) {
        UNUM8 bytes[4] = {row.flag, 0xFF, 0xFF, 0xFF};
        PDU_FLAG_DATA flag = {4, bytes};
        const auto lines = LinesOfCreation(&resource, &flag);
        for (const char* line : {"Raw mode: Checksum OFF", "Raw mode: Checksum ON"}) {
            const bool expected = row.line != nullptr && std::string(row.line) == line;
            EXPECT_EQ(Contains(lines, line), expected) << line << " for " << int{row.flag};
        }
    }
}

TEST_F(Links, CreationFlagMayBeShortEmptyOrMissing) {
    PDU_RSC_DATA resource = CanResource();
    UNUM8 raw = 0xC0;
    PDU_FLAG_DATA one_byte = {1, &raw};
    EXPECT_TRUE(Contains(LinesOfCreation(&resource, &one_byte), "Raw mode: Checksum ON"));
    PDU_FLAG_DATA no_byte = {0, &raw};
    PDU_FLAG_DATA nothing = {0, nullptr};
    for (PDU_FLAG_DATA* flag : {&no_byte, &nothing, static_cast<PDU_FLAG_DATA*>(nullptr)}) {
        EXPECT_FALSE(Contains(LinesOfCreation(&resource, flag), "Raw mode: Checksum ON"));
    }
}

TEST_F(Links, ConnectAndDisconnectChangeTheStateAndReportIt) {
    Link link(hMod);
    EXPECT_EQ(link.State(), PDU_CLLST_OFFLINE);
    EXPECT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(link.State(), PDU_CLLST_ONLINE);
    EXPECT_EQ(link.Disconnect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(link.State(), PDU_CLLST_OFFLINE);
    EXPECT_EQ(StatesIn(link), (std::vector<UNUM32>{PDU_CLLST_ONLINE, PDU_CLLST_OFFLINE}));
}

TEST_F(Links, SecondConnectAndSecondDisconnectAreRefused) {
    Link link(hMod);
    const LogCapture log;
    EXPECT_EQ(link.Disconnect(), PDU_ERR_CLL_NOT_CONNECTED);
    EXPECT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(link.Connect(), PDU_ERR_CLL_CONNECTED);
    EXPECT_EQ(link.Disconnect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(link.Disconnect(), PDU_ERR_CLL_NOT_CONNECTED);
    EXPECT_EQ(StatesIn(link), (std::vector<UNUM32>{PDU_CLLST_ONLINE, PDU_CLLST_OFFLINE}));
    EXPECT_EQ(log.Count("[PDUConnect] Called (0, 0)"), 2u);
    EXPECT_TRUE(
        log.Has("[PDUConnect]   PDUConnect Logical Link #0 - already online, Returning "
                "PDU_ERR_CLL_CONNECTED"));
    EXPECT_EQ(log.Count("[PDUDisconnect]   PDUDisconnect Logical Link #0 - already offline, "
                        "Returning PDU_ERR_CLL_NOT_CONNECTED"),
              2u);
}

TEST_F(Links, ConnectAfterStartCommSucceedsAndSetsOnline) {
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    link.WaitFor(link.Start(PDU_COPT_STARTCOMM));
    EXPECT_TRUE(Eventually([&] { return link.State() == PDU_CLLST_COMM_STARTED; }));
    EXPECT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(link.State(), PDU_CLLST_ONLINE);
}

TEST_F(Links, NeitherConnectNorDisconnectSendsAPacket) {
    Link link(hMod);
    simulator.Command("record clear");
    link.Connect();
    link.Disconnect();
    for (const char* type : {"in CREQ", "in TSPR", "in RAWC"}) {
        EXPECT_EQ(simulator.Count(type), 0u) << type;
    }
}

TEST_F(Links, DestroyedLinkIsInvalidForEveryCall) {
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    const LogCapture log;
    ASSERT_EQ(link.Destroy(), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.MissingOf({"[PDUDestroyComLogicalLink] Called (hMod=0, hCLL=0)",
                             "[PDUDestroyComLogicalLink]   Destroy Logical Link #0",
                             "[PDUDestroyComLogicalLink] Returning PDU_STATUS_NOERROR"}),
              "");
    ExpectEveryCallRefused(link.hCLL());
    for (const char* line :
         {"[PDUConnect]   PDUConnect Logical Link #0 - Returning PDU_ERR_INVALID_HANDLE",
          "[PDUDisconnect]   PDUDisconnect Logical Link #0 - Returning PDU_ERR_INVALID_HANDLE",
          "[PDUDestroyComLogicalLink]   Destroy Logical Link #0 - Returning "
          "PDU_ERR_INVALID_HANDLE",
          "[PDUGetUniqueRespIdTable] Returning PDU_ERR_INVALID_HANDLE",
          "[PDUSetUniqueRespIdTable] Returning PDU_ERR_INVALID_HANDLE"}) {
        EXPECT_TRUE(log.Has(line)) << line;
    }
}

TEST_F(Links, DestroyedLinkIsInvalidOnOtherThreadsToo) {
    Link link(hMod);
    ASSERT_EQ(link.Destroy(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(EndsInTime([this, hCLL = link.hCLL()] { ExpectEveryCallRefused(hCLL); }));
}

TEST_F(Links, StatusOfADestroyedLinkIsItsModules) {
    Link link(hMod);
    link.Destroy();
    EXPECT_EQ(link.State(), PDU_MODST_AVAIL);
}

TEST_F(Links, WorkerEndsAfterDestroy) {
    Link link(hMod);
    const LogCapture log;
    ASSERT_EQ(link.Destroy(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_EQ(log.MissingOf({"[CommThreadFunc] cleanup", "[CommThreadFunc] exiting"}), "");
}

TEST_F(Links, HandlesAboveTheLastAreInvalid) {
    const Link link(hMod);
    for (const UNUM32 hCLL : {1u, 1000u, 0x7FFFFFFFu, PDU_HANDLE_UNDEF}) {
        EXPECT_EQ(Pdu().PDUConnect(hMod, hCLL), PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(Pdu().PDUDestroyComLogicalLink(hMod, hCLL), PDU_ERR_INVALID_HANDLE);
    }
    EXPECT_EQ(Pdu().PDUConnect(hMod + 1, 0), PDU_ERR_INVALID_HANDLE);
}

TEST_F(Links, HundredLinksWorkInParallel) {
    std::vector<std::unique_ptr<Link>> links;
    for (UNUM32 i = 0; i < 100; ++i) {
        links.push_back(std::make_unique<Link>(hMod));
        ASSERT_EQ(links.back()->hCLL(), i);
        ASSERT_EQ(links.back()->Connect(), PDU_STATUS_NOERROR);
    }
    for (const auto& link : links)
        EXPECT_EQ(link->State(), PDU_CLLST_ONLINE);
}
