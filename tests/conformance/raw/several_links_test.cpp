// Several links on one dongle that counts its receivers: raw links, and a normal link with them.

#include <set>

#include "conformance/framework/vehicle.h"
#include "conformance/raw/raw_link.h"

namespace conformance {
namespace {

using RawLinks = RawDongle;

std::set<std::string> TakeAll(RawLink* first, RawLink* second, std::size_t count) {
    std::multiset<std::string> frames;
    EXPECT_TRUE(Eventually([&] {
        for (RawLink* link : {first, second}) {
            while (const auto event = NextEvent(link->hMod(), link->hCLL())) {
                if (event->ItemType == PDU_IT_RESULT) frames.insert(Hex(ResultOf(*event).data));
            }
        }
        return frames.size() >= count;
    })) << frames.size();
    EXPECT_EQ(frames.size(), count);
    return {frames.begin(), frames.end()};
}

TEST_F(RawLinks, EachFrameGoesToOneOfTwo) {
    constexpr std::size_t kFrames = 200;
    RawLink first(hMod);
    RawLink second(hMod);
    first.Receive();
    second.Receive();
    EXPECT_EQ(Sent(2), (std::vector<std::string>{kReceptionOn, kReceptionOn}));
    ASSERT_TRUE(WaitForReception(true));
    ASSERT_EQ(simulator.Command("raw burst 200 123"), "200");
    EXPECT_EQ(TakeAll(&first, &second, kFrames).size(), kFrames) << "each frame once";
}

TEST_F(RawLinks, OneContinuesReceivingWhenTheOtherEnds) {
    RawLink first(hMod);
    RawLink second(hMod);
    first.Receive();
    const UNUM32 hCoP = second.Receive();
    ASSERT_TRUE(simulator.WaitFor(2, "in RAWC"));
    const LogCapture log;
    first.Destroy();
    ASSERT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_EQ(Sent(3), (std::vector<std::string>{kReceptionOn, kReceptionOn, kReceptionOff}));
    for (int i = 0; i < 3; ++i)
        FrameOnBus("123 01");
    const auto frames = second.TakeFrames(3);
    for (const Received& frame : frames)
        EXPECT_EQ(frame.hCoP, hCoP);
}

TEST_F(RawLinks, ReceptionIsOffWhenAllHaveEnded) {
    RawLink first(hMod);
    RawLink second(hMod);
    RawLink third(hMod);
    for (RawLink* link : {&first, &second, &third, &second})
        link->Receive();
    ASSERT_TRUE(WaitForReception(true));
    second.Destroy();
    first.Destroy();
    third.Destroy();
    // A late receiver may not have started yet, so wait until all four were on and are off again.
    EXPECT_TRUE(simulator.WaitFor(8, "in RAWC"));
    EXPECT_FALSE(IsReceptionOn());
    EXPECT_EQ(simulator.Command("raw send 123 01"), "0");
}

TEST_F(RawLinks, BothCanSend) {
    RawLink first(hMod);
    RawLink second(hMod);
    first.Send(0x101, {1});
    ASSERT_TRUE(simulator.WaitFor(1, "in RAWC"));
    second.Send(0x102, {2});
    EXPECT_EQ(Sent(2), (std::vector<std::string>{"01010000 0100 0000 0100000000000000",
                                                 "02010000 0100 0000 0200000000000000"}));
}

TEST_F(RawLinks, RequestsOnANormalLinkWorkDuringRawTraffic) {
    constexpr int kRequests = 20;
    RawLink raw(hMod);
    const UNUM32 hCoP = StartReception(&raw);
    EngineLink engine(hMod);
    for (int i = 0; i < kRequests; ++i) {
        ASSERT_EQ(simulator.Command("raw burst 10 123"), "10");
        const Outcome outcome = engine.Request(ReadVin(), PositiveRead());
        EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
        ASSERT_EQ(outcome.results.size(), 1u);
        EXPECT_EQ(Hex(outcome.results[0].data).substr(0, 8), "62 F1 90");
    }
    const auto frames = raw.TakeFrames(std::size_t{10} * kRequests);
    for (const Received& frame : frames)
        EXPECT_EQ(frame.hCoP, hCoP);
    EXPECT_EQ(NextEvent(hMod, engine.hCLL()), nullptr) << "no raw frame reaches the other link";
}

}  // namespace
}  // namespace conformance
