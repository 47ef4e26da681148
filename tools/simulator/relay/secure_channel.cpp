#include "relay/secure_channel.h"

#include <algorithm>

namespace brennix {

namespace {

constexpr std::size_t kTagAt = 8;
constexpr std::size_t kEphemeralAt = 24;
constexpr std::size_t kEncryptedStaticAt = 89;
constexpr std::size_t kPaddingAt = 154;

constexpr std::string_view kDeviceKeyLabel = "ad:dev_pk";
constexpr std::string_view kWelcomeLabel = "ad:welcome";
constexpr std::string_view kFromDeviceLabel = "v1|role=device|server";
constexpr std::string_view kToDeviceLabel = "v1|role=server|device";

constexpr Nonce kZeroNonce = {};

std::string CheckFirstMessage(ByteSpan packet) {
    if (PacketType(packet) != type::kNhs1) return TypeName(PacketType(packet)) + " before NHS1";
    if (packet.size() != kFirstMessageSize) {
        return "NHS1 of " + std::to_string(packet.size()) + " bytes, 156 expected";
    }
    if (packet[kPaddingAt] != 0 || packet[kPaddingAt + 1] != 0) return "NHS1 does not end in zeros";
    return {};
}

Bytes MakeSecondMessage(const Encrypted& welcome, const Point& ephemeral) {
    Bytes payload;
    AppendBytes(&payload, welcome.tag);
    AppendBytes(&payload, ephemeral);
    payload.resize(kSecondMessageHead - kHeaderSize);
    AppendBytes(&payload, welcome.text);
    return MakePacket(type::kNhs2, payload);
}

Nonce FirstNonce(const Key& salt) { return Take<Nonce>(salt); }

}  // namespace

std::optional<Bytes> SecureChannel::Answer(ByteSpan nhs1, const KeyPair& relay,
                                           const KeyPair& ephemeral, ByteSpan welcome,
                                           std::string* wrong) {
    *wrong = CheckFirstMessage(nhs1);
    if (!wrong->empty()) return std::nullopt;

    Derived derived{};
    const auto shared1 = SharedSecret(relay.secret, Take<Point>(nhs1.subspan(kEphemeralAt)));
    if (!shared1) {
        *wrong = "NHS1 with an ephemeral key that is not on the curve";
        return std::nullopt;
    }
    derived.shared1 = *shared1;
    const auto device =
        Decrypt(HkdfExtract(derived.shared1), kZeroNonce, kDeviceKeyLabel,
                Take<Tag>(nhs1.subspan(kTagAt)), nhs1.subspan(kEncryptedStaticAt, kPointSize));
    if (!device) {
        *wrong = "NHS1 that does not fit this relay's key";
        return std::nullopt;
    }
    derived.device = Take<Point>(*device);
    const auto shared2 = SharedSecret(ephemeral.secret, derived.device);
    if (!shared2) {
        *wrong = "NHS1 with a device key that is not on the curve";
        return std::nullopt;
    }
    derived.shared2 = *shared2;

    Bytes input;
    AppendBytes(&input, derived.shared2);
    AppendBytes(&input, derived.shared1);
    const Key root = HkdfExtract(input);
    // The labels are named from the device's side.
    derived.from_device = HkdfExpand(root, "hop-tx");
    derived.to_device = HkdfExpand(root, "hop-rx");
    derived.nonce_salt = HkdfExpand(root, "hop-nonce-salt");

    derived_ = derived;
    sealed_ = 0;
    opened_ = 0;
    established_ = true;
    // Deliberate: the welcome does not count, so that the first sealed packet has its nonce again.
    return MakeSecondMessage(
        Encrypt(derived.to_device, FirstNonce(derived.nonce_salt), kWelcomeLabel, welcome),
        ephemeral.point);
}

Nonce SecureChannel::MakeNonce(std::uint64_t counter) const {
    Nonce nonce = FirstNonce(derived_.nonce_salt);
    for (std::size_t i = 0; i < 8; ++i)
        nonce[4 + i] ^= static_cast<std::uint8_t>(counter >> (8 * i));
    return nonce;
}

Bytes SecureChannel::Seal(ByteSpan packet) {
    const Encrypted inside =
        Encrypt(derived_.to_device, MakeNonce(sealed_++), kToDeviceLabel, packet);
    Bytes payload;
    AppendBytes(&payload, inside.tag);
    AppendBytes(&payload, inside.text);
    return MakePacket(type::kCryp, payload);
}

std::optional<Bytes> SecureChannel::Open(ByteSpan sealed, std::string* wrong) {
    if (sealed.size() < kSealedHead + kHeaderSize) {
        *wrong = "CRYP of " + std::to_string(sealed.size()) + " bytes, at least 32 expected";
        return std::nullopt;
    }
    auto inner = Decrypt(derived_.from_device, MakeNonce(opened_), kFromDeviceLabel,
                         Take<Tag>(sealed.subspan(kTagAt)), sealed.subspan(kSealedHead));
    if (!inner) {
        *wrong = "CRYP that is not sealed as packet " + std::to_string(opened_) + " of the device";
        return std::nullopt;
    }
    if (PacketLength(*inner) != inner->size()) {
        *wrong = "CRYP with a packet of " + std::to_string(inner->size()) +
                 " bytes inside that says it has " + std::to_string(PacketLength(*inner));
        return std::nullopt;
    }
    ++opened_;
    return inner;
}

}  // namespace brennix
