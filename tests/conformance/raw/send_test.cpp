// Frames that raw links send.

#include <memory>

#include "conformance/raw/raw_link.h"

namespace conformance {
namespace {

class RawSend : public RawDongle {
protected:
    // The worker has finished everything started before.
    static void WaitUntilIdle(RawLink* link) { link->WaitFor(link->Start(PDU_COPT_UPDATEPARAM)); }
    std::uint64_t SentUntilIdle(RawLink* link) {
        WaitUntilIdle(link);
        link->Send(0x7FF, {});  // after all others
        EXPECT_TRUE(Eventually([&] {
            const auto last = simulator.Last(1, "in RAWC");
            return !last.empty() && last[0]["hex"].get<std::string>().substr(16, 4) == "FF07";
        }));
        return simulator.Count("in RAWC") - 1;
    }
};

TEST_F(RawSend, StartCommSendsTheFrame) {
    RawLink link(hMod);
    link.Send(0x123, {0xDE, 0xAD, 0xBE});
    link.Send(0x18DAF110, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(Sent(2), (std::vector<std::string>{"23010000 0300 0000 DEADBE0000000000",
                                                 "10F1DA18 0800 0000 0102030405060708"}));
}

TEST_F(RawSend, FrameWithoutDataIsSent) {
    RawLink link(hMod);
    link.Send(0x7DF, {});
    EXPECT_EQ(Sent(1)[0], "DF070000 0000 0000 0000000000000000");
}

TEST_F(RawSend, FrameOfMoreThanEightBytesIsSentWithItsCountAndWithoutData) {
    RawLink link(hMod);
    link.Send(0x100, std::vector<UNUM8>(9, 0x55));
    link.Send(0x100, std::vector<UNUM8>(255, 0x55));
    EXPECT_EQ(Sent(2), (std::vector<std::string>{"00010000 0900 0000 0000000000000000",
                                                 "00010000 FF00 0000 0000000000000000"}));
    EXPECT_EQ(simulator.Violations(), 2u);
    simulator.Command("violations clear");
}

TEST_F(RawSend, CountIsTakenModulo256) {
    RawLink link(hMod);
    link.Send(0x100, std::vector<UNUM8>(256, 0x55));
    link.Send(0x100, std::vector<UNUM8>(258, 0x55));
    EXPECT_EQ(Sent(2), (std::vector<std::string>{"00010000 0000 0000 0000000000000000",
                                                 "00010000 0200 0000 5555000000000000"}));
}

TEST_F(RawSend, NothingIsSentWithoutAWholeIdentifier) {
    RawLink link(hMod);
    const LogCapture log;
    ControlData control({}, 1, 0);
    link.Start(PDU_COPT_STARTCOMM, {0, 0, 1}, control.Data());
    link.Start(PDU_COPT_STARTCOMM, {}, control.Data());
    EXPECT_EQ(SentUntilIdle(&link), 0u);
    EXPECT_EQ(log.CountLike("*RAW: *"), 1u) << "of the last";
}

TEST_F(RawSend, NothingIsSentWithoutASendCycleOrControlData) {
    RawLink link(hMod);
    const LogCapture log;
    for (const SNUM32 cycles : {0, -1}) {
        ControlData control({}, cycles, 0);
        link.Send(0x123, {1}, control);
    }
    link.Start(PDU_COPT_STARTCOMM, FrameBytes(0x123, {1}));
    EXPECT_EQ(SentUntilIdle(&link), 0u);
    EXPECT_EQ(log.CountLike("*RAW: *"), 1u) << "of the last";
}

TEST_F(RawSend, OneFrameIsSentHoweverManySendCyclesAreAskedFor) {
    RawLink link(hMod);
    ControlData control({}, 5, 0);
    link.Send(0x123, {1}, control);
    EXPECT_EQ(SentUntilIdle(&link), 1u);
}

TEST_F(RawSend, ChangesNoStateAndRaisesNoEvent) {
    RawLink link(hMod);
    const LogCapture log;
    ControlData control({}, 1, 0);
    const UNUM32 hCoP = link.Send(0x123, {1}, control);
    ASSERT_TRUE(Eventually([&] { return log.Has(CopLine("[CommThreadFunc] free CoP #", hCoP)); }));
    // The release is logged before it happens.
    EXPECT_TRUE(Eventually([&] { return link.Cancel(hCoP) == PDU_ERR_INVALID_HANDLE; }));
    EXPECT_EQ(NextEvent(hMod, link.hCLL()), nullptr);
    EXPECT_EQ(link.State(), PDU_CLLST_ONLINE);
    EXPECT_EQ(log.CountLike("*Enable TesterPresent*"), 0u);
}

TEST_F(RawSend, IsLoggedWithTheKindOfItsIdentifier) {
    RawLink link(hMod);
    const LogCapture log;
    ControlData standard({}, 1, 0);
    ControlData extended({}, 1, 1);
    link.Send(0x12, {0xDE, 0xAD}, standard);
    link.Send(0x18DAF110, {}, extended.Extended());
    link.Send(0x18DAF111, {}, standard);
    for (const SNUM32 cycles : {2, -1}) {
        ControlData only_receiving({}, 0, cycles);
        link.Start(PDU_COPT_STARTCOMM, {}, only_receiving.Data());
    }
    WaitUntilIdle(&link);
    EXPECT_EQ(log.MissingOf({"[CommThreadFunc:*]   RAW: Send CAN frame 0x0012  DE AD ",
                             "[CommThreadFunc:*]   RAW: Send CAN frame 0x18DAF110 (extended) ",
                             "[CommThreadFunc:*]   RAW: Start receiving",
                             "[CommThreadFunc:*]   RAW: Send CAN frame 0x18DAF111  ",
                             "[CommThreadFunc:*]   RAW: Start receiving"}),
              "");
    EXPECT_EQ(log.CountLike("*RAW: *"), 5u);
}

TEST_F(RawSend, ExtendedNeedsTheThirdFlagByte) {
    RawLink link(hMod);
    const LogCapture log;
    ControlData control({}, 1, 0);
    control.Extended().Data()->TxFlag.NumFlagBytes = 2;
    link.Send(0x123, {}, control);
    WaitUntilIdle(&link);
    EXPECT_EQ(log.CountLike("*(extended)*"), 0u);
    EXPECT_EQ(log.CountLike("*RAW: Send CAN frame 0x0123*"), 1u);
}

// They belong to the caller and may no longer exist when the worker executes the ComPrimitive.
TEST_F(RawSend, FlagBytesAreReadWhenTheComPrimitiveIsStarted) {
    RawLink link(hMod);
    const LogCapture log;
    {
        const auto flags = std::make_unique<UNUM8[]>(3);
        flags[2] = 1;
        ControlData control({}, 1, 0);
        control.Data()->TxFlag = {3, flags.get()};
        link.Send(0x123, {}, control);
        flags[2] = 0;
    }
    WaitUntilIdle(&link);
    EXPECT_EQ(log.CountLike("*RAW: Send CAN frame 0x0123 (extended) *"), 1u);
}

TEST_F(RawSend, AnswerOnTheBusIsReceived) {
    RawLink link(hMod);
    StartReception(&link);
    link.Send(0x600, {1, 2});
    EXPECT_EQ(Hex(link.TakeFrame()), "00 00 06 01 41 0D E0");
}

TEST_F(RawSend, StopCommWorksAsOnEveryLink) {
    RawLink link(hMod);
    const UNUM32 hCoP = link.Start(PDU_COPT_STOPCOMM);
    EXPECT_EQ(link.WaitFor(hCoP).states, std::vector<UNUM32>{PDU_COPST_FINISHED});
    EXPECT_TRUE(simulator.WaitFor(1, "in TSPR"));
}

TEST_F(RawSend, ChecksumOptionDoesNotChangeTheFrame) {
    const LogCapture log;
    Link link(hMod, nullptr, kRawWithChecksum);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUCreateComLogicalLink]   Raw mode: Checksum ON"));
    ControlData control({}, 1, 0);
    link.Start(PDU_COPT_STARTCOMM, FrameBytes(0x123, {1, 2}), control.Data());
    EXPECT_EQ(Sent(1)[0], "23010000 0200 0000 0102000000000000");
}

}  // namespace
}  // namespace conformance
