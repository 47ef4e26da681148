#include "relay/cloud_check.h"

#include <algorithm>

#include "protocol/layout.h"
#include "protocol/packet_check.h"

namespace brennix {

namespace {

constexpr std::size_t kIdSize = 6;  // of a device: the first bytes of its key's X
constexpr std::size_t kIdEnd = devi::kId + kIdSize;
constexpr std::string_view kUserPrefix = "DPDU: ";
constexpr std::string_view kLibraryVersion = "1.5.0.62-95aec0c";

bool IsText(ByteSpan bytes, std::string_view text) {
    return std::equal(bytes.begin(), bytes.end(), text.begin(), text.end());
}

// Not empty, and zeros from the first NUL, which exists, to the end.
bool IsTerminated(ByteSpan field) {
    const auto end = std::find(field.begin(), field.end(), 0);
    return end != field.begin() && end != field.end() &&
           IsZero(field.subspan(static_cast<std::size_t>(end - field.begin())));
}

std::string CheckIdentification(ByteSpan packet, const Point& device) {
    if (!std::equal(device.begin(), device.end(), packet.begin() + devi::kKey)) {
        return "DEVI with another key than the handshake's";
    }
    if (!std::equal(device.begin() + 1, device.begin() + 1 + kIdSize, packet.begin() + devi::kId)) {
        return "DEVI with an id that is not the key's";
    }
    if (!IsZero(packet.subspan(kIdEnd, devi::kKey - kIdEnd)) ||
        !IsZero(packet.subspan(devi::kKey + kPointSize))) {
        return "DEVI with unused bytes that are not zero";
    }
    return {};
}

std::string CheckLogin(ByteSpan packet) {
    if (!IsText(packet.subspan(logn::kVersion, logn::kVersionWidth), kLibraryVersion))
        return "LOGN with another version";
    if (!IsText(packet.subspan(logn::kName, kUserPrefix.size()), kUserPrefix))
        return "LOGN without \"DPDU: \"";
    if (!IsTerminated(packet.subspan(logn::kName, logn::kNameWidth)) ||
        !IsTerminated(packet.subspan(logn::kBuildTime, logn::kBuildWidth)) ||
        !IsTerminated(packet.subspan(logn::kBuildDate, logn::kBuildWidth))) {
        return "LOGN with a text that is not terminated";
    }
    constexpr std::size_t kVersionEnd = logn::kVersion + logn::kVersionWidth;
    if (!IsZero(packet.subspan(kHeaderSize, logn::kVersion - kHeaderSize)) ||
        !IsZero(packet.subspan(kVersionEnd, logn::kName - kVersionEnd)) ||
        !IsZero(packet.subspan(logn::kTextsEnd))) {
        return "LOGN with unused bytes that are not zero";
    }
    return {};
}

}  // namespace

std::string CheckCloudPacket(ByteSpan packet, const Point& device) {
    std::string wrong;
    switch (PacketType(packet)) {
        case type::kDevi:
            wrong = CheckLength(packet, devi::kSize);
            return wrong.empty() ? CheckIdentification(packet, device) : wrong;
        case type::kLogn:
            wrong = CheckLength(packet, logn::kSize);
            return wrong.empty() ? CheckLogin(packet) : wrong;
        case type::kIden:
            return CheckLength(packet, kHeaderSize);
        case type::kAddr:
            wrong = CheckLength(packet, addr::kSize);
            if (!wrong.empty() || IsZero(packet.subspan(addr::kMac + kMacSize))) return wrong;
            return "ADDR does not end in zeros";
        default:
            return {};
    }
}

std::string DeviceId(const Point& device) { return ToHex(ByteSpan(device).subspan(1, kIdSize)); }

}  // namespace brennix
