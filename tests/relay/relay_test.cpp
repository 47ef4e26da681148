// The relay, seen from a client over TCP and over WebSocket.

#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>

#include "device.h"
#include "relay/certificate.h"

namespace brennix::test {
namespace {

const std::string kUpgrade =
    "GET / HTTP/1.1\r\nHost: a\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";

class RelayTest : public testing::TestWithParam<Carrier> {
protected:
    bool AnswersVin(Device* device, std::uint32_t id) {
        device->Send(VinRequest(id));
        const std::optional<Bytes> answer = device->Read();
        return answer && PacketType(*answer) == type::kCres && answer->size() > 20 &&
               LoadU32(answer->data() + 16) == id && (*answer)[20] == 0x62;
    }
};

INSTANTIATE_TEST_SUITE_P(Carriers, RelayTest, testing::Values(Carrier::kTcp, Carrier::kWebSocket),
                         [](const auto& row) { return std::string(CarrierName(row.param)); });

TEST_P(RelayTest, CarriesARequestToTheDongleAndItsAnswerBack) {
    RunningRelay relay;
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Connect());
    device.Login();
    ASSERT_TRUE(device.UseDongle());
    EXPECT_TRUE(AnswersVin(&device, 7));
    EXPECT_EQ(relay.Violations(), 0u) << relay.LastViolation();
    EXPECT_EQ(relay.Command("record count in CREQ"), "ok 1");
}

TEST_P(RelayTest, AnswersEachClientItsOwnRequests) {
    RunningRelay relay;
    Device first(relay, GetParam());
    Device second(relay, GetParam());
    for (Device* device : {&first, &second}) {
        ASSERT_TRUE(device->Connect());
        ASSERT_TRUE(device->UseDongle());
    }
    EXPECT_EQ(relay.Command("behaviour {\"delay_ms\": 50}"), "ok");
    first.Send(VinRequest(3));
    EXPECT_TRUE(AnswersVin(&second, 3));
    const std::optional<Bytes> own = first.Read();
    ASSERT_TRUE(own.has_value());
    EXPECT_EQ(PacketType(*own), type::kCres);
    EXPECT_EQ(relay.Command("record count in CREQ"), "ok 2");
    EXPECT_EQ(relay.Command("#1 record count in CREQ"), "ok 1");
    EXPECT_EQ(relay.Command("#2 record count in CREQ"), "ok 1");
    EXPECT_EQ(relay.Command("#3 record count in"), "ok 0");
}

TEST_P(RelayTest, AnswersIdenWithEveryDongle) {
    RunningRelay relay({}, 3);
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Connect());
    device.Send(MakePacket(type::kIden, {}));
    std::set<Bytes> addresses;
    for (int i = 0; i < 3; ++i) {
        const std::optional<Bytes> login = device.Read();
        ASSERT_TRUE(login && login->size() == 192);
        addresses.emplace(login->begin() + 12, login->begin() + 18);
    }
    EXPECT_EQ(addresses.size(), 3u);
}

TEST_P(RelayTest, SendsTheStatusThatWasSet) {
    RunningRelay relay;
    for (const std::uint32_t status : {1u, 2u, 7u}) {
        relay.Command("status " + std::to_string(status));
        Device device(relay, GetParam());
        ASSERT_TRUE(device.Handshake());
        EXPECT_EQ(device.Identify(), status);
    }
}

TEST_P(RelayTest, DropsASealedPacketThatCannotBeOpened) {
    RunningRelay relay;
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Connect());
    device.SendWire(MakePacket(type::kCryp, Bytes(40, 1)));
    EXPECT_EQ(relay.Command("wait 1 10000 violation"), "ok 1");
    device.Send(MakePacket(type::kIden, {}));  // the count continues
    EXPECT_TRUE(device.Read().has_value());
}

TEST_P(RelayTest, RejectsAFirstMessageForAnotherRelay) {
    RunningRelay relay;
    Device device(relay, GetParam());
    Bytes first = device.MakeFirstMessage();
    first[100] ^= 1;
    device.SendWire(first);
    EXPECT_EQ(relay.Command("wait 1 10000 violation"), "ok 1");
    EXPECT_NE(relay.LastViolation().find("does not fit this relay's key"), std::string::npos);
}

TEST_P(RelayTest, DamagesExactlyTheGivenPacketOnce) {
    RunningRelay relay({"once NHS2 flip 800"});
    EXPECT_FALSE(Device(relay, GetParam()).Handshake());
    EXPECT_TRUE(Device(relay, GetParam()).Handshake());
}

TEST_P(RelayTest, CutsTheStreamAfterAnyNumberOfBytes) {
    RunningRelay relay;
    for (int bytes = 0; bytes <= 103; bytes += 13) {
        relay.Command("fault once bytes " + std::to_string(bytes) + " cut");
        EXPECT_FALSE(Device(relay, GetParam()).Handshake()) << bytes;
        EXPECT_EQ(relay.Command("fault"), "ok");
    }
    EXPECT_TRUE(Device(relay, GetParam()).Handshake());
}

TEST_P(RelayTest, LosesRepeatsAndSwapsSealedPackets) {
    for (const char* fault : {"LOGN drop", "LOGN replay", "LOGN swap"}) {
        RunningRelay relay({fault}, 2);
        Device device(relay, GetParam());
        ASSERT_TRUE(device.Connect());
        device.Send(MakePacket(type::kIden, {}));
        // One of the first two packets cannot be opened, since its count differs.
        const bool first = device.Read().has_value();
        const bool second = std::string(fault) == "LOGN drop" || device.Read().has_value();
        EXPECT_FALSE(first && second) << fault;
    }
}

TEST_P(RelayTest, SplitsAndJoinsWithoutChangingTheStream) {
    for (const char* fault : {"packet * split 7", "packet * split 40 1", "LOGN join",
                              "packet * recut 5", "packet * frames 9"}) {
        RunningRelay relay({fault}, 2);
        Device device(relay, GetParam());
        ASSERT_TRUE(device.Connect()) << fault;
        ASSERT_TRUE(device.UseDongle()) << fault;
        ASSERT_TRUE(device.Read().has_value()) << fault;
        EXPECT_TRUE(AnswersVin(&device, 9)) << fault;
    }
}

TEST_P(RelayTest, SendsNoAcknowledgementIfTheRuleDropsIt) {
    RunningRelay relay({"in DEVI ignore; DEVA drop"});
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Handshake());
    device.Send(MakePacket(type::kDevi, Bytes(76, 0)));
    EXPECT_EQ(relay.Command("wait 1 10000 in DEVI"), "ok 1");
    EXPECT_EQ(relay.Command("record count out DEVA"), "ok 0");
}

TEST_P(RelayTest, RefusesConnectionsWhileItDoesNotListen) {
    RunningRelay relay;
    EXPECT_EQ(relay.Command("listen off"), "ok 3");
    EXPECT_FALSE(Socket(relay.Place("TCP")).IsConnected());
    EXPECT_EQ(relay.Command("listen on"), "ok 3");
    EXPECT_TRUE(Device(relay, GetParam()).Connect());
}

TEST_P(RelayTest, ClosesConnectionsOnCommand) {
    RunningRelay relay;
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Connect());
    EXPECT_EQ(relay.Command("kill"), "ok 1");
    EXPECT_FALSE(device.Read().has_value());
}

TEST_P(RelayTest, ChecksTheReplyToItsPing) {
    RunningRelay relay;
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Connect());
    EXPECT_EQ(relay.Command("ping 0102"), "ok 1");
    ASSERT_TRUE(device.Read().has_value());
    device.Send(MakePacket(type::kRepl, Bytes{1, 2}));
    EXPECT_EQ(relay.Command("wait 1 10000 in REPL"), "ok 1");
    EXPECT_EQ(relay.Violations(), 0u);
    device.Send(MakePacket(type::kRepl, Bytes{1, 2}));
    EXPECT_EQ(relay.Command("wait 1 10000 violation"), "ok 1");
}

TEST_P(RelayTest, RepluggedDongleLogsInAgain) {
    RunningRelay relay;
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Connect());
    EXPECT_EQ(relay.Command("unplug"), "ok");
    EXPECT_EQ(relay.Command("replug"), "ok");
    const std::optional<Bytes> login = device.Read();
    ASSERT_TRUE(login.has_value());
    EXPECT_EQ(PacketType(*login), type::kLogn);
}

TEST(RelayWebSocket, ClosesOnInvalidFrames) {
    const Bytes payload = {1, 2, 3};
    const Bytes unmasked = {0x82, 3, 1, 2, 3};
    const struct {
        Bytes frame;
        std::uint8_t code;  // low byte of 1000 + n
    } cases[] = {
        {unmasked, 0xEA},                                 // 1002
        {MaskedFrame(0xC2, payload), 0xEA},               // a reserved bit
        {MaskedFrame(0x83, payload), 0xEA},               // an unknown opcode
        {MaskedFrame(0x80, payload), 0xEA},               // continues nothing
        {MaskedFrame(0x09, payload), 0xEA},               // a ping in parts
        {MaskedFrame(0x88, Bytes{3}), 0xEA},              // half a code
        {MaskedFrame(0x81, payload), 0xEB},               // 1003, text
        {MaskedFrame(0x88, Bytes{3, 0xED}), 0xEA},        // 1005 must not be sent
        {MaskedFrame(0x88, Bytes{3, 0xE8, 0xFF}), 0xEF},  // 1007
    };
    RunningRelay relay;
    for (const auto& one : cases) {
        Device device(relay, Carrier::kWebSocket);
        device.Wire().Send(one.frame);
        const Bytes close = device.Wire().Read(4);
        ASSERT_EQ(close.size(), 4u) << ToHex(one.frame);
        EXPECT_EQ(close[0], 0x88) << ToHex(one.frame);
        EXPECT_EQ(close[3], one.code) << ToHex(one.frame);
    }
    EXPECT_EQ(relay.Violations(), std::size(cases));
}

TEST(RelayWebSocket, AnswersPingAndClose) {
    RunningRelay relay;
    Device device(relay, Carrier::kWebSocket);
    device.Wire().Send(MaskedFrame(0x89, Bytes{7, 8}));
    EXPECT_EQ(device.Wire().Read(4), (Bytes{0x8A, 2, 7, 8}));
    device.Wire().Send(MaskedFrame(0x88, Bytes{3, 0xE8}));
    EXPECT_EQ(device.Wire().Read(4), (Bytes{0x88, 2, 3, 0xE8}));
    EXPECT_TRUE(device.Wire().IsAtEnd());
    EXPECT_EQ(relay.Violations(), 0u);
}

TEST(RelayWebSocket, RejectsAMalformedUpgrade) {
    RunningRelay relay;
    Socket socket(relay.WebSocketAddress());
    socket.Send("GET / HTTP/1.1\r\nHost: a\r\n\r\n");
    EXPECT_TRUE(socket.ReadUntil("\r\n").starts_with("HTTP/1.1 400"));
}

TEST_P(RelayTest, DamagesTheAcknowledgementByEveryRule) {
    const struct {
        const char* fault;
        bool reaches_the_client;  // as a packet that can be opened
    } cases[] = {
        {"DEVA flip 190", false},    {"DEVA set 30 FFFF", false}, {"DEVA truncate 20", false},
        {"DEVA length 5000", false}, {"DEVA length 7", false},    {"DEVA header 4097", false},
        {"DEVA cut 30", false},      {"DEVA cut", false},         {"DEVA reset", false},
        {"in DEVI cut", false},      {"in DEVI reset", false},    {"DEVA plain", true},
        {"DEVA delay 20", true}};
    for (const auto& one : cases) {
        RunningRelay relay({one.fault});
        Device device(relay, GetParam());
        ASSERT_TRUE(device.Handshake()) << one.fault;
        if (one.reaches_the_client) {
            EXPECT_EQ(device.Identify(), 0u) << one.fault;
        } else {
            EXPECT_EQ(device.Identify(), UINT32_MAX) << one.fault;
        }
    }
}

TEST_P(RelayTest, SendsAReplacementPacketSealed) {
    // DEVA with status 9.
    RunningRelay relay({"DEVA replace 4156454410000000 0900000000000000"});
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Handshake());
    EXPECT_EQ(device.Identify(), 9u);
}

TEST_P(RelayTest, ReadsNothingMoreOnceDeaf) {
    RunningRelay relay({"in DEVI deaf"});
    Device device(relay, GetParam());
    ASSERT_TRUE(device.Connect());
    device.Send(MakePacket(type::kIden, {}));
    EXPECT_EQ(relay.Command("record count in IDEN"), "ok 0");
    EXPECT_EQ(relay.Command("reading on"), "ok");
    EXPECT_EQ(relay.Command("wait 1 10000 in IDEN"), "ok 1");
}

TEST(RelayWebSocket, SendsATextMessageByRule) {
    RunningRelay relay({"NHS2 text hello"});
    Device device(relay, Carrier::kWebSocket);
    device.SendWire(device.MakeFirstMessage());
    EXPECT_EQ(device.Wire().Read(7), (Bytes{0x81, 5, 'h', 'e', 'l', 'l', 'o'}));
}

TEST(RelayWebSocket, AnswersTheUpgradeWithTheStatusOfTheRule) {
    RunningRelay relay({"once accept http 503"});
    Socket socket(relay.WebSocketAddress());
    socket.Send(kUpgrade);
    EXPECT_TRUE(socket.ReadUntil("\r\n").starts_with("HTTP/1.1 503"));
    EXPECT_TRUE(Device(relay, Carrier::kWebSocket).Connect());
}

TEST(RelayWebSocket, RejectsAHeadThatIsTooLong) {
    RunningRelay relay;
    Socket socket(relay.WebSocketAddress());
    socket.Send("GET / HTTP/1.1\r\nHost: " + std::string(9000, 'a'));
    EXPECT_TRUE(socket.ReadUntil("\r\n").starts_with("HTTP/1.1 431"));
}

// Noise comes directly before the packet; over a WebSocket, in a message of its own.
TEST_P(RelayTest, SendsNoiseBeforeAPacket) {
    RunningRelay relay({"NHS2 noise DEADBEEF"});
    Device device(relay, GetParam());
    device.SendWire(device.MakeFirstMessage());
    const Bytes noise = {0xDE, 0xAD, 0xBE, 0xEF};
    const std::size_t frame = GetParam() == Carrier::kWebSocket ? 2 : 0;
    const Bytes first = device.Wire().Read(frame + noise.size() + frame + 4);
    ASSERT_EQ(first.size(), frame + noise.size() + frame + 4);
    EXPECT_TRUE(std::equal(noise.begin(), noise.end(), first.begin() + frame));
    if (frame == 0) {
        EXPECT_EQ(LoadU32(first.data() + noise.size()), type::kNhs2);
    }
}

TEST(RelayFaults, RefusedOrResetConnectionEndsAtOnceAndTheNextIsAccepted) {
    for (const char* fault : {"once accept refuse", "once accept reset"}) {
        RunningRelay relay({fault});
        Socket ended(relay.Place("TCP"));
        EXPECT_TRUE(ended.IsAtEnd()) << fault;
        EXPECT_TRUE(Device(relay).Connect()) << fault;
    }
}

TEST(RelayFaults, DeafConnectionIsAcceptedAndNeverRead) {
    RunningRelay relay({"once accept deaf"});
    Device deaf(relay);
    deaf.SendWire(deaf.MakeFirstMessage());
    EXPECT_TRUE(Device(relay).Connect());
    EXPECT_EQ(relay.Command("record count in NHS1"), "ok 1");
    EXPECT_EQ(relay.Command("reading on"), "ok");
    EXPECT_EQ(relay.Command("wait 2 10000 in NHS1"), "ok 2");
}

TEST(RelayFaults, RejectsInvalidRules) {
    RunningRelay relay;
    for (const char* rule : {"NHS2 explode", "NHS2 flip", "in NHS1 flip 3", "accept drop",
                             "NHS2 split 0", "packet * replace 00", "bytes cut"}) {
        EXPECT_TRUE(relay.Command(std::string("fault ") + rule).starts_with("error: fault: "))
            << rule;
    }
    EXPECT_EQ(relay.Command("fault"), "ok");
}

TEST(RelayTls, KeyWithoutItsCertificateIsNotOverwritten) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("relay_tls_" + std::to_string(::getpid()));
    std::filesystem::create_directory(folder);
    const std::string certificate = folder / "certificate";
    const std::string key = folder / "key";
    for (const std::string& present : {certificate, key}) {
        std::ofstream(present) << "mine";
        EXPECT_THROW(EnsureCertificate(certificate, key, "127.0.0.1"), std::runtime_error);
        std::string text;
        std::ifstream(present) >> text;
        EXPECT_EQ(text, "mine");
        std::filesystem::remove(present);
    }
    std::filesystem::remove_all(folder);
}

// The relay's certificate is valid for its own address.
TEST(RelayTls, OpensAWebSocketWithItsOwnCertificate) {
    RunningRelay relay;
    const std::string place = relay.Place("WSS").substr(6);
    Socket socket(place.substr(0, place.find('/')));
    SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
    ASSERT_EQ(SSL_CTX_load_verify_file(context, relay.Place("CERTIFICATE").c_str()), 1);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    SSL* const tls = SSL_new(context);
    X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), "127.0.0.1");
    SSL_set_fd(tls, socket.Descriptor());
    ASSERT_EQ(SSL_connect(tls), 1);
    EXPECT_GT(SSL_write(tls, kUpgrade.data(), static_cast<int>(kUpgrade.size())), 0);
    std::array<char, 12> answer = {};
    EXPECT_EQ(SSL_read(tls, answer.data(), 12), 12);
    EXPECT_EQ(std::string(answer.data(), 12), "HTTP/1.1 101");
    SSL_free(tls);
    SSL_CTX_free(context);
}

}  // namespace
}  // namespace brennix::test
