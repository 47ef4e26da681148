#include "worker/raw_send.h"

#include "unit/worker/worker_link.h"

namespace tarvik::test {
namespace {

class RawSend : public WorkerLink {
protected:
    static Ref<ComPrimitive> MakeFrame(const Bytes& data, SNUM32 send_cycles = 1,
                                       SNUM32 receive_cycles = 0) {
        Ref<ComPrimitive> cop = MakeCop(PDU_COPT_STARTCOMM, data);
        cop->pCopCtrlData->NumSendCycles = send_cycles;
        cop->pCopCtrlData->NumReceiveCycles = receive_cycles;
        return cop;
    }
    void Run(const Ref<ComPrimitive>& cop) { ExecuteRawStartComm(link.Get(), *cop); }
    std::size_t FramesSentFor(const Ref<ComPrimitive>& cop) {
        Run(cop);
        std::size_t frames = 0;
        while (NextSent() != nullptr)
            ++frames;
        return frames;
    }
    // The count of the frame that this many request bytes make.
    std::uint32_t CountOf(std::size_t size) {
        Run(MakeFrame(Bytes(size, 0xAB)));
        const PacketPtr packet = NextSent();
        return packet == nullptr ? 0xDEAD : packet->U16(12);
    }
};

TEST_F(RawSend, FrameHasTheFirstFourBytesAsIdentifierAndTheRestAsData) {
    Run(MakeFrame({0x18, 0xDA, 0xF1, 0x10, 0x55, 0x66}));
    const PacketPtr packet = NextSent();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(Hex(packet->Bytes(), packet->length),
              "43574152"
              "18000000"
              "10F1DA18"
              "0200"
              "0000"
              "5566000000000000");
    EXPECT_EQ(link->rawCanId, 0x18DAF110u);
    EXPECT_EQ(Events(), Texts{});
}

TEST_F(RawSend, OneFrameIsSentHoweverManyCyclesAreAskedFor) {
    const Bytes frame = {0, 0, 1, 0x23, 1};
    EXPECT_EQ(FramesSentFor(MakeFrame(frame, 1)), 1u);
    EXPECT_EQ(FramesSentFor(MakeFrame(frame, 5)), 1u);
}

TEST_F(RawSend, NoFrameIsSentForLessThanOneCycle) {
    const Bytes frame = {0, 0, 1, 0x23, 1};
    EXPECT_EQ(FramesSentFor(MakeFrame(frame, 0)), 0u);
    EXPECT_EQ(FramesSentFor(MakeFrame(frame, -1)), 0u);
}

TEST_F(RawSend, RequestWithoutAWholeIdentifierSendsNothing) {
    const LogCapture log;
    EXPECT_EQ(FramesSentFor(MakeFrame({})), 0u);
    EXPECT_EQ(FramesSentFor(MakeFrame({1, 2, 3})), 0u);
    EXPECT_EQ(ThreadLines(log), Texts{});
    EXPECT_EQ(FramesSentFor(MakeFrame({1, 2, 3, 4})), 1u);
}

TEST_F(RawSend, WithoutControlDataDoesNothing) {
    const Ref<ComPrimitive> cop = MakeFrame({0, 0, 1, 0x23, 1});
    FreeControlData(std::exchange(cop->pCopCtrlData, nullptr));
    const LogCapture log;
    EXPECT_EQ(FramesSentFor(cop), 0u);
    EXPECT_EQ(ThreadLines(log), Texts{});
}

TEST_F(RawSend, CountOfDataBytesIsTakenModulo256) {
    EXPECT_EQ(CountOf(4), 0u);
    EXPECT_EQ(CountOf(12), 8u);
    EXPECT_EQ(CountOf(13), 9u);
    EXPECT_EQ(CountOf(4 + 255), 255u);
    EXPECT_EQ(CountOf(4 + 256), 0u);
    EXPECT_EQ(CountOf(4 + 257), 1u);
}

TEST_F(RawSend, LogsTheFrame) {
    const LogCapture log;
    const Ref<ComPrimitive> extended = MakeFrame({0, 0, 1, 0x23, 0x55, 0x66});
    extended->extended_frame = true;
    Run(extended);
    Run(MakeFrame({0x18, 0xDA, 0xF1, 0x10}));
    EXPECT_EQ(ThreadLines(log), (Texts{"   RAW: Send CAN frame 0x0123 (extended) 55 66 ",
                                       "   RAW: Send CAN frame 0x18DAF110  "}));
}

TEST_F(RawSend, ReceiveCyclesAreOnlyLogged) {
    const auto logged_for = [&](SNUM32 receive_cycles) {
        const LogCapture log;
        Run(MakeFrame({}, 0, receive_cycles));
        return ThreadLines(log);
    };
    EXPECT_EQ(logged_for(1), Texts{"   RAW: Start receiving"});
    EXPECT_EQ(logged_for(2), Texts{"   RAW: Start receiving"});
    EXPECT_EQ(logged_for(0), Texts{});
    EXPECT_EQ(logged_for(-1), Texts{});
    EXPECT_EQ(NextSent(), nullptr);
}

TEST_F(RawSend, FrameIsSentBeforeTheReceptionIsLogged) {
    const LogCapture log;
    Run(MakeFrame({0, 0, 1, 0x23}, 1, 1));
    EXPECT_EQ(ThreadLines(log),
              (Texts{"   RAW: Send CAN frame 0x0123  ", "   RAW: Start receiving"}));
}

}  // namespace
}  // namespace tarvik::test
