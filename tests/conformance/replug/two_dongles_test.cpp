// Two dongles at once, each at its own vehicle.

#include <gtest/gtest.h>

#include <cstring>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/requester.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"
#include "conformance/replug/recovery.h"

namespace conformance {
namespace {

std::string VinOf(const Outcome& outcome) {
    return outcome.results.size() == 1 ? Hex(outcome.results[0].data) : "no answer";
}
constexpr char kFirstVin[] = "62 F1 90 00";
constexpr char kSecondVin[] = "62 F1 90 01";

class TwoDongles : public testing::Test {
protected:
    static constexpr const char* kSerialNumbers[2] = {"SerialNumber='02:42:52:4E:58:01'",
                                                      "SerialNumber='02:42:52:4E:58:02'"};

    void SetUp() override {
        ASSERT_TRUE(Simulator::IsThere()) << "needs simulated dongles";
        simulator.Reset();
        simulator.Command("@1 replug");
        simulator.Command("@0 data engine F190 00");
        simulator.Command("@1 data engine F190 01");
        Settings{.useSerial = true}.Store();
        Construct();
    }
    void TearDown() override {
        Pdu().PDUDestruct();
        EXPECT_EQ(simulator.Violations(), 0u) << simulator.Command("violations");
    }

    void Construct() {
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        for (std::size_t dongle : {0u, 1u}) {
            modules[dongle] = PDU_HANDLE_UNDEF;
            ASSERT_TRUE(
                EventuallyConnected([&] { return FindDongle(dongle); }, static_cast<int>(dongle)))
                << "dongle " << dongle;
        }
        ASSERT_NE(modules[0], modules[1]);
    }
    bool FindDongle(std::size_t dongle) {
        const auto list = GetModuleIds();
        for (UNUM32 i = 0; i < list->NumEntries; ++i) {
            const PDU_MODULE_DATA& module = list->pModuleData[i];
            if (std::strstr(module.pVendorModuleName, kSerialNumbers[dongle]) != nullptr) {
                modules[dongle] = module.hMod;
            }
        }
        return modules[dongle] != PDU_HANDLE_UNDEF;
    }

    void ExpectEachAnswers() {
        EngineLink first(modules[0]);
        EngineLink second(modules[1]);
        EXPECT_EQ(VinOf(first.Request(ReadVin(), PositiveRead())), kFirstVin);
        EXPECT_EQ(VinOf(second.Request(ReadVin(), PositiveRead())), kSecondVin);
    }

    Simulator simulator;
    UNUM32 modules[2] = {};
};

TEST_F(TwoDongles, AreTwoModules) {
    EXPECT_EQ(GetModuleIds()->NumEntries, 2u);
    EXPECT_EQ(modules[0] + modules[1], 1u);  // 0 and 1, in either order
}

TEST_F(TwoDongles, AnswerForTheirOwnVehicles) { ExpectEachAnswers(); }

TEST_F(TwoDongles, WorkAtTheSameTime) {
    EngineLink first(modules[0]);
    EngineLink second(modules[1]);
    simulator.Command(R"(@0 next 1 {"lost": true})");
    const UNUM32 waiting = first.StartRequest(ReadVin(), PositiveRead());
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    EXPECT_EQ(VinOf(second.Request(ReadVin(), PositiveRead())), kSecondVin);
    simulator.Unplug();
    ExpectError(first.WaitFor(waiting), 0x101);
}

TEST_F(TwoDongles, UnpluggingOneDoesNotDisturbTheOther) {
    EngineLink first(modules[0]);
    EngineLink second(modules[1]);
    simulator.Command(R"(@1 next 1 {"lost": true})");
    const UNUM32 lost = second.StartRequest(ReadVin(), PositiveRead());
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    std::vector<UNUM32> going_on;
    for (int i = 0; i < 50; ++i) {
        going_on.push_back(first.StartRequest(ReadVin(), PositiveRead()));
    }
    simulator.Command("@1 unplug");
    for (const UNUM32 hCoP : going_on)
        EXPECT_EQ(VinOf(first.WaitFor(hCoP)), kFirstVin);
    ExpectError(second.WaitFor(lost), 0x101);

    ASSERT_TRUE(ScanUntilNotAvailable(modules[1]));
    // A scan waits 200 ms for a dongle's answer, which may be too short on a busy machine. Only a
    // scan that the first dongle has answered counts; before each, it is made available again.
    ASSERT_TRUE(Eventually([this] {
        EXPECT_EQ(Pdu().PDUModuleDisconnect(modules[0]), PDU_STATUS_NOERROR);
        const LogCapture log;
        GetModuleIds();
        return log.HasLike("[add_client_cbr] *(MAC: 02:42:52:4E:58:01, *");
    }));
    EXPECT_EQ(ModuleStatus(modules[0]), PDU_MODST_AVAIL);
    EXPECT_EQ(ModuleStatus(modules[1]), PDU_MODST_NOT_AVAIL);
    EXPECT_EQ(GetModuleIds()->NumEntries, 2u);
    EXPECT_EQ(VinOf(first.Request(ReadVin(), PositiveRead())), kFirstVin);
}

TEST_F(TwoDongles, BothAnswerAfterTheRecoveryOfOne) {
    simulator.Command("@1 unplug");
    ASSERT_TRUE(ScanUntilNotAvailable(modules[1]));
    simulator.Command("@1 replug");
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    Construct();
    ExpectEachAnswers();
}

TEST_F(TwoDongles, ForeignPortBetweenThemIsIgnored) {
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    Construct();
    EXPECT_EQ(GetModuleIds()->NumEntries, 2u);
    EXPECT_FALSE(log.HasLike("*COM9*"));
}

}  // namespace
}  // namespace conformance
