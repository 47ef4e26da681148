// The connection ends after each byte of the answer to a request.
#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/rounds.h"

namespace conformance {
namespace {

class AnswerCut : public EachWay {
protected:
    // Fewer over the WebSocket, where the cuts hit the same bytes.
    static std::size_t Stride() {
        return GetParam() == Way::kTcp ? Rounds(1, 12, 12) : Rounds(6, 12, 12);
    }

    // Waits until the next connection is up.
    static void AwaitLoss(const LogCapture& log) {
        EXPECT_TRUE(Eventually([&] { return log.Has("[Cloud] Connected"); }));
        EXPECT_TRUE(log.HasLike("[Cloud] *xThread exited. Reconnecting."));
    }
    UNUM32 AskWithCut(Link* link, ControlData* control, std::size_t bytes) {
        relay_.Fault("once CRES * cut " + std::to_string(bytes));
        return link->Start(PDU_COPT_SENDRECV, ReadVin(), control->Data());
    }
    void ExpectNoAnswer(std::size_t bytes) {
        const LogCapture log;
        EngineLink link(hMod_);
        ControlData control(PositiveRead());
        const UNUM32 hCoP = AskWithCut(&link, &control, bytes);
        AwaitLoss(log);
        while (const auto event = NextEvent(hMod_, link.hCLL())) {
            EXPECT_FALSE(event->hCop == hCoP && event->ItemType == PDU_IT_RESULT);
        }
    }
    void ExpectAnswer(std::size_t bytes) {
        const LogCapture log;
        EngineLink link(hMod_);
        ControlData control(PositiveRead());
        const Outcome outcome = link.WaitFor(AskWithCut(&link, &control, bytes));
        ASSERT_EQ(outcome.results.size(), 1u);
        EXPECT_TRUE(IsVin(Hex(outcome.results[0].data)));
        AwaitLoss(log);
    }

    UNUM32 hMod_ = PDU_HANDLE_UNDEF;
};

INSTANTIATE_TEST_SUITE_P(Over, AnswerCut, testing::Values(Way::kTcp, Way::kWebSocket),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(AnswerCut, AfterAnyByteEndsTheConnectionAndTheNextOneAnswers) {
    // Header and tag of the sealed packet, header of the answer, the answer.
    constexpr std::size_t kAnswerBytes = 24 + 20 + 20;
    Construct(SettingsFor(GetParam()));
    hMod_ = ConnectModule();
    for (std::size_t bytes = 0; bytes < kAnswerBytes; bytes += Stride()) {
        ExpectNoAnswer(bytes);
        ASSERT_FALSE(HasFailure()) << bytes;
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR) << bytes;
        ASSERT_TRUE(IsVin(ReadVinOf(hMod_))) << bytes;
    }
    ExpectAnswer(kAnswerBytes);  // the cut comes after it
}

}  // namespace
}  // namespace conformance
