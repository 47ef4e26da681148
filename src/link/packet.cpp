#include "link/packet.h"

#include <algorithm>

#include "support/text.h"

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

TypeText TypeAsStored(const std::uint8_t* packet) {
    TypeText letters{};
    for (std::size_t i = 0; i < sizeof(Packet::type); ++i)
        letters.text[i] = PrintableCharacter(static_cast<char>(packet[i]));
    return letters;
}

TypeText ReadableType(std::uint32_t type) {
    std::uint8_t stored[sizeof type];
    StoreU32(stored, type);
    TypeText letters = TypeAsStored(stored);
    std::reverse(letters.text, letters.text + sizeof type);
    return letters;
}

namespace {

template <typename Wire>
bool ReadRequestId(const Packet& packet, std::uint32_t* id) {
    const auto fields = packet.Fields<Wire>();
    if (fields) *id = fields->req_id;
    return fields.has_value();
}

}  // namespace

bool AnsweredRequest(const Packet& packet, std::uint32_t* id) {
    switch (packet.type) {
        case kTypeBusy:
            return ReadRequestId<BusyWire>(packet, id);
        case kTypeCres:
            return ReadRequestId<CommResponseWire>(packet, id);
        default:
            return false;
    }
}

LoginRecord LoginFromPacket(const Packet& packet) {
    LoginRecord login{};
    std::memcpy(login.bytes, packet.Bytes(), std::min(packet.length, kLoginSize));
    return login;
}

DeviceName LoginDeviceName(const LoginRecord& login) {
    const std::uint8_t* field = login.bytes + offsetof(LoginWire, device_name);
    DeviceName name{};
    for (std::size_t i = 0; i < sizeof LoginWire::device_name && field[i] != 0; ++i) {
        name.text[i] = static_cast<char>(field[i]);
    }
    return name;
}

DeviceName PrintableDeviceName(const LoginRecord& login) {
    DeviceName name = LoginDeviceName(login);
    for (char* c = name.text; *c != '\0'; ++c)
        *c = PrintableCharacter(*c);
    return name;
}

}  // namespace tarvik
