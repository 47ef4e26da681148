#include "link/packet.h"

#include <algorithm>

namespace tarvik {

PacketPtr MakePacket(std::uint32_t type, std::uint32_t length) {
    if (length < MIN_PKT_SIZE) return nullptr;
    PacketPtr packet(static_cast<Packet*>(AllocateMem(length)));
    if (packet != nullptr) {
        packet->type = type;
        packet->length = length;
    }
    return packet;
}

PacketPtr CopyPacket(const Packet& packet) {
    PacketPtr copy = MakePacket(packet.type, packet.length);
    if (copy != nullptr) std::memcpy(copy->Bytes(), packet.Bytes(), packet.length);
    return copy;
}

LoginRecord LoginFromPacket(const Packet& packet) {
    LoginRecord login{};
    std::memcpy(login.bytes, packet.Bytes(), std::min(packet.length, kLoginSize));
    return login;
}

DeviceName LoginDeviceName(const LoginRecord& login) {
    constexpr std::size_t kOffset = 64;
    constexpr std::size_t kWidth = sizeof DeviceName::text - 1;
    static_assert(kOffset + kWidth <= kLoginSize);

    DeviceName name{};
    for (std::size_t i = 0; i < kWidth && login.bytes[kOffset + i] != 0; ++i) {
        name.text[i] = static_cast<char>(login.bytes[kOffset + i]);
    }
    return name;
}

}  // namespace tarvik
