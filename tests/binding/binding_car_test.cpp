// The C++ binding with this project's library, a simulated dongle and the demonstration car.

#include <gtest/gtest.h>

#include <cstdlib>
#include <dpdu.hpp>
#include <thread>

#include "conformance/framework/library.h"
#include "conformance/framework/link.h"
#include "conformance/framework/settings.h"
#include "conformance/framework/simulator.h"
#include "conformance/framework/waiting.h"

namespace {

using namespace std::chrono_literals;
using conformance::Eventually;
using conformance::Settings;
using conformance::Simulator;
using pdu::ErrorKind;

class CarByBinding : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Simulator::IsThere()) << "needs a simulated dongle";
        simulator_.Reset();
        conformance::Pdu();
        Settings{.enableDebugLogFile = false, .useSerial = true}.Store();
        // On a busy machine a search may miss the dongle, which then counts as gone until the
        // library is constructed again.
        for (int attempt = 0; attempt < 5 && !module_; ++attempt) {
            library_.emplace(pdu::Library::At(std::getenv("TARVIK_DPDU_LIBRARY")));
            ASSERT_NE(conformance::FindModule(), PDU_HANDLE_UNDEF);
            pdu::Result<pdu::Module> module = pdu::Try([this] { return library_->Connect(); });
            if (module) {
                module_.emplace(std::move(module).Take());
            } else {
                library_.reset();
            }
        }
        ASSERT_TRUE(module_) << "no module was found";
    }
    void TearDown() override {
        module_.reset();
        library_.reset();
    }

    Simulator simulator_;
    std::optional<pdu::Library> library_;
    std::optional<pdu::Module> module_;
};

TEST_F(CarByBinding, VinIsRead) {
    EXPECT_EQ(module_->Open({0x7E0, 0x7E8}).Request({0x22, 0xF1, 0x90}).From(3).Text(),
              "WTVDEM0S1M0000001");
}

TEST_F(CarByBinding, NegativeResponseHasItsCode) {
    EXPECT_EQ(module_->Open({0x7E0, 0x7E8}).Request({0x22, 0xF1, 0xFF}).NegativeCode(), 0x31);
}

TEST_F(CarByBinding, AbsentControlUnitGivesNoAnswer) {
    pdu::Link link = module_->Open({0x7E6, 0x7EE});
    const pdu::Result<pdu::Response> result = link.TryRequest({0x22, 0xF1, 0x90});
    ASSERT_FALSE(result);
    EXPECT_EQ(result.Why().kind, ErrorKind::kNoAnswer);
    EXPECT_EQ(result.Why().event, PDU_ERR_EVT_TX_ERROR);
}

TEST_F(CarByBinding, ControlUnitThatKeepsARequestPendingIsAwaited) {
    simulator_.Command(R"(next 1 {"pending": 3, "pending_interval_ms": 50})");
    EXPECT_EQ(module_->Open({0x7E0, 0x7E8}).Request({0x22, 0xF1, 0x90}).From(3).Text(),
              "WTVDEM0S1M0000001");
}

TEST_F(CarByBinding, FunctionalRequestReachesAllControlUnits) {
    pdu::LinkOptions options;
    options.functional_id = 0x7DF;
    pdu::Link link = module_->Open(
        std::vector<pdu::Unit>{{0x7E0, 0x7E8}, {0x7E1, 0x7E9}, {0x713, 0x77D}}, options);
    const std::vector<pdu::Response> responses = link.RequestAll({0x22, 0xF1, 0x87});
    ASSERT_EQ(responses.size(), 3u);
    EXPECT_EQ(responses[2].From(3).Text(), "TV-ABS-1170-B");
    EXPECT_EQ(responses[2].Unit(), 2u);
}

TEST_F(CarByBinding, SuppressedPositiveResponseIsAnEmptyOne) {
    pdu::Link link = module_->Open({0x7E0, 0x7E8});
    EXPECT_FALSE(link.Request({0x3E, 0x80}));
    EXPECT_EQ(link.Request({0x3E, 0x00}).Data().Copy(), (std::vector<UNUM8>{0x7E, 0x00}));
}

TEST_F(CarByBinding, RequestThatIsOnlySentReachesTheControlUnit) {
    pdu::Link link = module_->Open({0x7E0, 0x7E8});
    link.Send({0x10, 0x03});
    EXPECT_EQ(link.Request({0x22, 0xF1, 0x8C}).Data().Copy(),
              (std::vector<UNUM8>{0x62, 0xF1, 0x8C, 0x00, 0x00, 0x12, 0x34}));
}

TEST_F(CarByBinding, RawFramesAreSentAndReceived) {
    pdu::RawLink link = module_->OpenRaw();
    bool has_short = false;
    bool has_long = false;
    EXPECT_TRUE(Eventually([&] {
        // The dongle may begin to receive a little later than it is told to.
        const std::optional<pdu::CanFrame> frame = link.Receive(100ms);
        if (!has_short) link.Send(0x600, {0x01, 0x0D});
        if (!has_long) link.Send(0x18DAFFF1, {});
        if (frame && frame->id == 0x601) {
            has_short = true;
            EXPECT_FALSE(frame->is_29_bit);
            EXPECT_EQ(frame->Bytes().Copy(), (std::vector<UNUM8>{0x41, 0x0D, 0xE0}));
        }
        if (frame && frame->id == 0x18DAF110) {
            has_long = true;
            EXPECT_TRUE(frame->is_29_bit);
        }
        return has_short && has_long;
    }));
}

TEST_F(CarByBinding, ComParamsOfEveryTypeAreSetAndReadBack) {
    pdu::Link link = module_->Open({0x7E0, 0x7E8});
    link.SetComParam("CP_P2Max", 50000);
    EXPECT_EQ(link.GetComParam("CP_P2Max").number, 50000);
    for (const char* name : {"CP_TesterPresentMessage", "CP_CanBaudrateRecord",
                             "CP_SessionTimingOverride", "CP_AccessTimingOverride"}) {
        pdu::ComParam param = link.GetComParam(name);
        param.words = {500000, 250000};
        param.bytes = {1, 0, 0, 50, 1, 244};
        link.SetComParam(name, param);
        const pdu::ComParam back = link.GetComParam(name);
        if (param.type == PDU_PT_LONGFIELD) {
            EXPECT_EQ(back.words, param.words) << name;
        } else {
            EXPECT_EQ(back.bytes, param.bytes) << name;
        }
    }
}

TEST_F(CarByBinding, TwoLinksAreUsedAtOnce) {
    int answers[2] = {0, 0};
    std::vector<std::thread> threads;
    for (const UNUM32 i : {0U, 1U}) {
        threads.emplace_back([this, i, &answers] {
            pdu::Link link = module_->Open({0x7E0 + i, 0x7E8 + i});
            for (int round = 0; round < 10; ++round)
                answers[i] += link.TryRequest({0x22, 0xF1, 0x90}) ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(answers[0], 10);
    EXPECT_EQ(answers[1], 10);
}

TEST_F(CarByBinding, VersionAndTimeAreRead) {
    EXPECT_STREQ(module_->Version().PDUApiSwName, "Tarvik D-PDU API");
    EXPECT_GT(module_->Time().count(), 0);
}

TEST_F(CarByBinding, DongleThatIsPulledOutIsLostAndNotASilentControlUnit) {
    pdu::Link link = module_->Open({0x7E0, 0x7E8});
    EXPECT_TRUE(link.Request({0x3E, 0x00}));
    simulator_.Unplug();
    const pdu::Result<pdu::Response> result = link.TryRequest({0x22, 0xF1, 0x90});
    ASSERT_FALSE(result);
    EXPECT_EQ(result.Why().kind, ErrorKind::kModuleLost);
    EXPECT_TRUE(module_->IsGone());
    simulator_.Replug();
}

}  // namespace
