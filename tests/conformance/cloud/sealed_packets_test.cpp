// Sealed packets that the network repeats, swaps or loses. The channel counts them: one that
// arrives twice or out of order is dropped, and after a gap nothing is accepted until the next
// connection.
#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/rounds.h"

namespace conformance {
namespace {

constexpr char kRefused[] = "[Cloud] Failed to open AEAD packet";
constexpr int kPings = 3;

// What the relay sends in a session: acknowledgement, a login, an answer, pings. The answer is
// first, so that it is included where some are left out.
constexpr const char* kPackets[] = {"CRES", "LOGN", "DEVA", "PING", "PING 2"};

class SealedPackets : public EachWay {
protected:
    // The channel is above the carrier: where a session takes long, fewer run over the WebSocket.
    static std::size_t Step() {
        return GetParam() == Way::kTcp ? Rounds(1, 2, 2) : Rounds(1, 5, 2);
    }
    void SetUp() override {
        EachWay::SetUp();
        Construct(SettingsFor(GetParam()));
        hMod_ = FindModule();
        ASSERT_NE(hMod_, PDU_HANDLE_UNDEF);
    }

    static bool NeverComesUp(const std::string& packet, const std::string& fault) {
        return packet == "DEVA" && fault != "replay";
    }
    // Whether the channel still works afterwards.
    static bool StillWorks(const std::string& packet, const std::string& fault) {
        return fault == "replay" || NeverComesUp(packet, fault);
    }
    static int ExpectedFailures(const std::string& packet, const std::string& fault) {
        return NeverComesUp(packet, fault) ? 1 : 0;
    }

    void Reconnect(LogCapture* log) {
        *log = LogCapture();
        relay_.KillConnections();
        ASSERT_TRUE(Eventually([log] { return log->Has("[Cloud] Connected"); }));
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod_), PDU_STATUS_NOERROR);
    }

    // Runs a session with this fault. Returns the answers that the library accepted.
    std::vector<Result> RunSession(const std::string& packet, const std::string& fault,
                                   LogCapture* log) {
        relay_.Command("record clear");
        relay_.Fault("once " + packet + " " + fault);
        Reconnect(log);
        relay_.Command("login");
        EngineLink link(hMod_);
        const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
        EXPECT_TRUE(relay_.WaitFor(1, "out CRES"));
        for (int i = 0; i < kPings; ++i)
            relay_.Command("ping 0102");
        EXPECT_TRUE(Eventually([&] { return IsOver(packet, fault, *log); }));
        return StillWorks(packet, fault) ? link.WaitFor(hCoP).results : Accepted(&link, hCoP);
    }
    // Replayed, or before the session: the channel still works. Otherwise it has refused something.
    bool IsOver(const std::string& packet, const std::string& fault, const LogCapture& log) {
        const std::size_t refused = log.Count(kRefused);
        if (NeverComesUp(packet, fault)) return relay_.Count("in REPL") == kPings;
        if (fault == "replay") return relay_.Count("in REPL") == kPings && refused == 1;
        return refused > 0;
    }
    static std::vector<Result> Accepted(Link* link, UNUM32 hCoP) {
        std::vector<Result> results;
        while (const auto event = NextEvent(link->hMod(), link->hCLL())) {
            if (event->hCop != hCoP || event->ItemType != PDU_IT_RESULT) continue;
            results.push_back(ResultOf(*event));
        }
        return results;
    }

    void RunCase(const std::string& packet, const std::string& fault) {
        SCOPED_TRACE(packet + " " + fault);
        LogCapture log;
        const std::vector<Result> results = RunSession(packet, fault, &log);
        EXPECT_EQ(log.Count("[Cloud] Connect failed, retry"), ExpectedFailures(packet, fault));
        EXPECT_EQ(relay_.Count("in REPL") == kPings, StillWorks(packet, fault));
        EXPECT_LE(results.size(), 1u);
        EXPECT_TRUE(results.size() == 1 || !StillWorks(packet, fault));
        for (const Result& result : results)
            EXPECT_TRUE(IsVin(Hex(result.data))) << Hex(result.data);

        relay_.Command("fault clear");
        Reconnect(&log);
        EXPECT_TRUE(IsVin(ReadVinOf(hMod_)));
    }
    void RunAll(const std::string& fault) {
        for (std::size_t i = 0; i < std::size(kPackets) && !HasFailure(); i += Step())
            RunCase(kPackets[i], fault);
    }

    UNUM32 hMod_ = PDU_HANDLE_UNDEF;
};

INSTANTIATE_TEST_SUITE_P(Over, SealedPackets, testing::Values(Way::kTcp, Way::kWebSocket),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(SealedPackets, ThatAreRepeatedAreAcceptedOnce) { RunAll("replay"); }

TEST_P(SealedPackets, ThatAreSwappedAreRefusedUntilTheirTurn) { RunAll("swap"); }

TEST_P(SealedPackets, ThatAreLostEndTheSessionAndTheNextOneWorks) { RunAll("drop"); }

}  // namespace
}  // namespace conformance
