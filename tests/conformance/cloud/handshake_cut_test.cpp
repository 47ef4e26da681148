// The connection ends after each byte that the relay sends for the handshake, one after the other.
#include "conformance/cloud/relay_fixture.h"

namespace conformance {
namespace {

class HandshakeCut : public EachWay {};

INSTANTIATE_TEST_SUITE_P(Over, HandshakeCut, testing::Values(Way::kTcp),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(HandshakeCut, AfterEachByteIsAFailedAttemptAndTheNextOneSucceeds) {
    Construct(SettingsFor(GetParam()));
    std::size_t connections = 1;
    ASSERT_TRUE(IsConnected(connections));
    std::size_t failures = 0;
    std::size_t cut = 1;
    for (;; ++cut) {
        relay_.Fault("once bytes " + std::to_string(cut) + " cut");
        relay_.KillConnections();
        ASSERT_TRUE(IsConnected(++connections)) << cut;
        const std::size_t failed = log_.Count("[Cloud] Connect failed, retry");
        if (failed == failures) break;  // the cut comes later, behind the handshake
        EXPECT_EQ(failed, failures + 1) << cut;
        failures = failed;
    }
    // An NHS2 and a sealed DEVA.
    EXPECT_GT(cut, 103u + 40u);
    const UNUM32 hMod = FindModule();
    ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
    EXPECT_TRUE(IsVin(ReadVinOf(hMod)));
}

}  // namespace
}  // namespace conformance
