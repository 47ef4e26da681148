// The relay's code, checked against the committed sessions.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "relay/key_file.h"
#include "relay/secure_channel.h"

namespace brennix::test {
namespace {

Bytes Hex(const nlohmann::json& text) {
    return ParseHex(text.get<std::string>()).value_or(Bytes{});
}

TEST(SecureChannelVectors, MatchTheRelaysValues) {
    std::ifstream file(TARVIK_VECTORS "/secure_channel.json");
    const nlohmann::json cases = nlohmann::json::parse(file).at("cases");
    ASSERT_FALSE(cases.empty());
    for (const nlohmann::json& one : cases) {
        SCOPED_TRACE(one.at("name").get<std::string>());
        const KeyPair relay = ReadKey(one.at("server_private_key"), "server");
        const KeyPair ephemeral = ReadKey(one.at("relay_ephemeral_private_key"), "ephemeral");
        EXPECT_EQ(ToLowerHex(relay.point), one.at("server_public_key"));
        SecureChannel channel;
        std::string wrong;
        const auto nhs2 =
            channel.Answer(Hex(one.at("nhs1")), relay, ephemeral, Hex(one.at("welcome")), &wrong);
        ASSERT_TRUE(nhs2.has_value()) << wrong;
        EXPECT_EQ(ToLowerHex(*nhs2), one.at("nhs2"));
        const SecureChannel::Derived& values = channel.Values();
        EXPECT_EQ(ToLowerHex(values.shared1), one.at("shared_secret_1"));
        EXPECT_EQ(ToLowerHex(values.shared2), one.at("shared_secret_2"));
        EXPECT_EQ(ToLowerHex(HkdfExtract(values.shared1)), one.at("nhs1_key"));
        EXPECT_EQ(ToLowerHex(values.from_device), one.at("tx_key"));
        EXPECT_EQ(ToLowerHex(values.to_device), one.at("rx_key"));
        EXPECT_EQ(ToLowerHex(values.nonce_salt), one.at("nonce_salt"));
        EXPECT_EQ(ToLowerHex(values.device), one.at("device_public_key"));
        std::uint64_t sealed = 0;
        std::uint64_t opened = 0;
        for (const nlohmann::json& packet : one.at("packets")) {
            const bool is_tx = packet.at("direction") == "tx";
            std::uint64_t& expected = is_tx ? opened : sealed;
            if (packet.at("counter").get<std::uint64_t>() != expected) continue;  // jumps ahead
            ++expected;
            if (is_tx) {
                const auto inner = channel.Open(Hex(packet.at("sealed")), &wrong);
                ASSERT_TRUE(inner.has_value()) << wrong;
                EXPECT_EQ(ToLowerHex(*inner), packet.at("plain"));
            } else {
                EXPECT_EQ(ToLowerHex(channel.Seal(Hex(packet.at("plain")))), packet.at("sealed"));
            }
        }
        EXPECT_GT(sealed, 0u);
        EXPECT_GT(opened, 0u);
    }
}

}  // namespace
}  // namespace brennix::test
