// Requests to a dongle on Bluetooth LE.
#include "conformance/ble/ble_fixture.h"

namespace conformance {
namespace {

using BleLink = ConnectedBleDongle;

// The car's writable data item.
constexpr UNUM8 kItem[] = {0x01, 0x00};
constexpr std::size_t kLongBytes = 4000;
constexpr std::size_t kRequestHeader = 32;
constexpr std::size_t kFragmentBytes = 244 - 16;

std::vector<UNUM8> LongWrite() {
    std::vector<UNUM8> request = {0x2E, kItem[0], kItem[1]};
    while (request.size() < kLongBytes)
        request.push_back(static_cast<UNUM8>(request.size() * 7));
    return request;
}

TEST_F(BleLink, CarriesFourThousandBytesInFragmentsBothWays) {
    EngineLink link(hMod);
    const std::vector<UNUM8> request = LongWrite();
    // The item accepts as many bytes as it has.
    radio.Command("data engine 0100 " + std::string(2 * (kLongBytes - 3), '0'));
    radio.Command("record clear");
    const Outcome written = link.Request(request);
    ASSERT_EQ(written.results.size(), 1u);
    EXPECT_EQ(Hex(written.results[0].data), "6E 01 00");
    const std::size_t fragments =
        (kRequestHeader + kLongBytes + kFragmentBytes - 1) / kFragmentBytes;
    EXPECT_EQ(radio.Count("in FRAG"), fragments);
    EXPECT_EQ(radio.Count("in CREQ"), 1u);

    const Outcome read = link.Request({0x22, kItem[0], kItem[1]});
    ASSERT_EQ(read.results.size(), 1u);
    std::vector<UNUM8> expected = request;
    expected[0] = 0x62;
    EXPECT_EQ(read.results[0].data, expected);
}

TEST_F(BleLink, AnswersAPing) {
    radio.Command("record clear");
    radio.Command("ping 010203");
    EXPECT_TRUE(radio.WaitFor(1, "in REPL"));
}

TEST_F(BleLink, DropsNotificationsWithoutAWholePacket) {
    radio.Command("notify 4E45444908");
    EXPECT_TRUE(Logs("[BLE] Received packet too small: 5 bytes"));
    radio.Command("notify 4E45444909000000");
    EXPECT_TRUE(Logs("[BLE-RX] Invalid packet length: 9 (received 8 bytes)"));
    radio.Command("notify 4E45444907000000");
    EXPECT_TRUE(Logs("[BLE-RX] Invalid packet length: 7 (received 8 bytes)"));
    EXPECT_TRUE(IsVin(VinOf(hMod)));
}

// The transport drops the packet; the link sends the request again later.
TEST_F(BleLink, FailedWriteIsLogged) {
    radio.Set(0, R"({"write_status": 2})");
    radio.Command("record clear");
    {
        EngineLink link(hMod);
        link.StartRequest(ReadVin(), PositiveRead());
        EXPECT_TRUE(Logs("[BLE-TX] Failed to write: *"));
        EXPECT_EQ(radio.Count("in CREQ"), 0u);
    }
    radio.Set(0, R"({"write_status": 0})");
    EXPECT_TRUE(IsVin(VinOf(hMod)));
}

TEST_F(BleLink, LossDuringARequestEndsItAtOnceAndTheNextScanFindsTheDongle) {
    {
        EngineLink link(hMod);
        SetNumber("CP_P2Max", 60'000'000);
        radio.Command("record clear");
        radio.Command(R"(next 1 {"lost": true})");
        const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
        ASSERT_TRUE(radio.WaitFor(1, "in CREQ"));
        radio.Command("unplug");
        const Outcome outcome = link.WaitFor(hCoP);  // before the request's own time-out
        ExpectError(outcome, 0x101);
    }
    radio.Command("replug");
    ASSERT_TRUE(ScanUntil(1));
    EXPECT_TRUE(IsVin(VinOf(hMod)));
}

TEST_F(BleLink, DongleThatAScanMissedIsFoundAfterAnotherConstruct) {
    radio.Command("unplug");
    ASSERT_TRUE(ScanUntil(0));
    radio.Command("replug");
    modules.reset();
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    Construct();
    ASSERT_TRUE(ScanUntil(1));
    EXPECT_TRUE(IsVin(VinOf(ModuleOf(0))));
}

// Only the connection is lost; the dongle goes on advertising.
TEST_F(BleLink, ScanAfterALostConnectionConnectsAgain) {
    radio.Command("lose");
    ASSERT_TRUE(Logs("[BLE] Connection to 02:42:52:4E:58:01 lost"));
    ASSERT_TRUE(ScanUntil(1));
    EXPECT_TRUE(IsVin(VinOf(ModuleOf(0))));
    EXPECT_EQ(radio.Connected(), 1);
}

class BleSmallMtu : public BleDongles {};

// The login comes in fragments. A request that does not fit is never cut.
TEST_F(BleSmallMtu, WriteOfARequestThatDoesNotFitFails) {
    radio.Set(0, R"({"mtu": 40})");
    Construct();
    ASSERT_TRUE(ScanUntil(1));
    EngineLink link(ModuleOf(0));
    radio.Command("record clear");
    link.StartRequest({0x22, 0xF1, 0x90, 0xF1, 0x87, 0xF1, 0x95});
    EXPECT_TRUE(Logs("[BLE-TX] Failed to write: *"));
    EXPECT_EQ(radio.Count("in"), 0u);
}

}  // namespace
}  // namespace conformance
