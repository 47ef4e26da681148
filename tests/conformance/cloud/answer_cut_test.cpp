// The connection ends after each byte of the answer to a request.
#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/rounds.h"

namespace conformance {
namespace {

class AnswerCut : public EachWay {
protected:
    // Over the WebSocket, whose cuts fall into the same bytes, fewer.
    static std::size_t Stride() {
        return GetParam() == Way::kTcp ? Rounds(1, 12, 12) : Rounds(6, 12, 12);
    }

    // True: the answer was accepted all the same.
    bool IsAnsweredDespiteCut(std::size_t bytes) {
        const LogCapture log;
        relay_.Fault("once CRES * cut " + std::to_string(bytes));
        EngineLink link(hMod_);
        ControlData control(PositiveRead());
        const UNUM32 hCoP = link.Start(PDU_COPT_SENDRECV, ReadVin(), control.Data());
        EXPECT_TRUE(Eventually([&] { return log.Has("[Cloud] Connected"); })) << bytes;
        EXPECT_TRUE(log.HasLike("[Cloud] *xThread exited. Reconnecting.")) << bytes;
        bool answered = false;
        while (const auto event = NextEvent(hMod_, link.hCLL())) {
            if (event->hCop != hCoP || event->ItemType != PDU_IT_RESULT) continue;
            EXPECT_TRUE(IsVin(Hex(ResultOf(*event).data))) << bytes;
            EXPECT_FALSE(answered) << bytes;
            answered = true;
        }
        return answered;
    }

    UNUM32 hMod_ = PDU_HANDLE_UNDEF;
};

INSTANTIATE_TEST_SUITE_P(Over, AnswerCut, testing::Values(Way::kTcp, Way::kWebSocket),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(AnswerCut, AfterEachByteIsALostConnectionAndTheNextOneAnswers) {
    // Header and tag of the sealed packet, header of the answer, the answer.
    constexpr std::size_t kAnswerBytes = 24 + 20 + 20;
    Construct(SettingsFor(GetParam()));
    hMod_ = FindModule();
    ASSERT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR);
    for (std::size_t bytes = 0; bytes < kAnswerBytes; bytes += Stride()) {
        ASSERT_FALSE(IsAnsweredDespiteCut(bytes) || HasFailure()) << bytes;
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR) << bytes;
        ASSERT_TRUE(IsVin(ReadVinOf(hMod_))) << bytes;
    }
    EXPECT_TRUE(IsAnsweredDespiteCut(kAnswerBytes)) << "the cut is behind the answer";
}

}  // namespace
}  // namespace conformance
