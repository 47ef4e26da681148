#include "relay/cloud_check.h"

#include <algorithm>

namespace brennix {

static constexpr std::size_t kIdentificationSize = 84;
static constexpr std::size_t kLoginSize = 192;
static constexpr std::size_t kAddressSize = 16;
static constexpr std::string_view kLibraryVersion = "1.5.0.62-95aec0c";

static bool IsZero(ByteSpan bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

static bool IsText(ByteSpan bytes, std::string_view text) {
    return std::equal(bytes.begin(), bytes.end(), text.begin(), text.end());
}

// Printable up to the first NUL, which is there, and zeros from it on.
static bool IsTerminated(ByteSpan field) {
    const auto end = std::find(field.begin(), field.end(), 0);
    return end != field.begin() && end != field.end() &&
           IsZero(field.subspan(static_cast<std::size_t>(end - field.begin())));
}

static std::string CheckIdentification(ByteSpan packet, const Point& device) {
    if (!std::equal(device.begin(), device.end(), packet.begin() + 16)) {
        return "DEVI with another key than the handshake's";
    }
    if (!std::equal(device.begin() + 1, device.begin() + 7, packet.begin() + 8)) {
        return "DEVI with an id that is not the key's";
    }
    if (!IsZero(packet.subspan(14, 2)) || !IsZero(packet.subspan(81))) {
        return "DEVI with unused bytes that are not zero";
    }
    return {};
}

static std::string CheckLogin(ByteSpan packet) {
    if (!IsText(packet.subspan(32, 16), kLibraryVersion)) return "LOGN with another version";
    if (!IsText(packet.subspan(64, 6), "DPDU: ")) return "LOGN without \"DPDU: \"";
    if (!IsTerminated(packet.subspan(64, 32)) || !IsTerminated(packet.subspan(96, 16)) ||
        !IsTerminated(packet.subspan(112, 16))) {
        return "LOGN with a text that is not terminated";
    }
    if (!IsZero(packet.subspan(8, 24)) || !IsZero(packet.subspan(48, 16)) ||
        !IsZero(packet.subspan(128))) {
        return "LOGN with unused bytes that are not zero";
    }
    return {};
}

static std::string CheckLength(ByteSpan packet, std::size_t expected) {
    if (packet.size() == expected) return {};
    return TypeName(PacketType(packet)) + " of " + std::to_string(packet.size()) + " bytes, " +
           std::to_string(expected) + " expected";
}

std::string CheckCloudPacket(ByteSpan packet, const Point& device) {
    std::string wrong;
    switch (PacketType(packet)) {
        case type::kDevi:
            wrong = CheckLength(packet, kIdentificationSize);
            return wrong.empty() ? CheckIdentification(packet, device) : wrong;
        case type::kLogn:
            wrong = CheckLength(packet, kLoginSize);
            return wrong.empty() ? CheckLogin(packet) : wrong;
        case type::kIden:
            return CheckLength(packet, kHeaderSize);
        case type::kAddr:
            wrong = CheckLength(packet, kAddressSize);
            if (!wrong.empty() || IsZero(packet.subspan(14))) return wrong;
            return "ADDR does not end in zeros";
        default:
            return {};
    }
}

std::string DeviceId(const Point& device) { return ToHex(ByteSpan(device).subspan(1, 6)); }

}  // namespace brennix
