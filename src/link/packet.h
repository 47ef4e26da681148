#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "link/wire.h"
#include "link/wire_packets.h"
#include "support/memory.h"

namespace tarvik {

inline constexpr std::uint32_t kNoTag = 0xFFFFFFFF;

// A packet in exactly its wire form: this header, then length - 8 bytes of payload, in one block.
struct Packet {
    std::uint32_t type;
    std::uint32_t length;  // whole packet, header included

    std::uint8_t* Bytes() { return reinterpret_cast<std::uint8_t*>(this); }
    const std::uint8_t* Bytes() const { return reinterpret_cast<const std::uint8_t*>(this); }
    ByteView View() const { return {Bytes(), length}; }
    std::uint32_t U32(std::size_t offset) const { return LoadU32(Bytes() + offset); }
    std::uint16_t U16(std::size_t offset) const { return LoadU16(Bytes() + offset); }
    void SetU32(std::size_t offset, std::uint32_t value) { StoreU32(Bytes() + offset, value); }
    void SetU16(std::size_t offset, std::uint16_t value) { StoreU16(Bytes() + offset, value); }

    // A copy of the fields, for a record of wire_packets.h; none if the packet is shorter.
    template <typename Wire>
    std::optional<Wire> Fields() const {
        if (length < sizeof(Wire)) return std::nullopt;
        Wire fields;
        std::memcpy(&fields, Bytes(), sizeof fields);
        return fields;
    }
    // Copies all fields but type and length. The packet must be long enough.
    template <typename Wire>
    void SetFields(const Wire& fields) {
        constexpr std::size_t kHeader = sizeof(Packet);
        std::memcpy(Bytes() + kHeader, reinterpret_cast<const std::uint8_t*>(&fields) + kHeader,
                    sizeof fields - kHeader);
    }
    // The bytes after the fields. The packet must be long enough for the fields.
    template <typename Wire>
    ByteView DataAfter() const {
        return {Bytes() + sizeof(Wire), length - sizeof(Wire)};
    }
};
static_assert(sizeof(Packet) == sizeof(PacketHeaderWire));

using PacketPtr = Tracked<Packet>;

// `length` zero bytes with type and length filled in; null when memory is out.
PacketPtr MakePacket(std::uint32_t type, std::uint32_t length);
PacketPtr CopyPacket(const Packet& packet);
// A packet with these fields (their `length` is ignored), then `data`; null when memory is out.
template <typename Wire>
PacketPtr BuildPacket(const Wire& fields, ByteView data = {}) {
    PacketPtr packet =
        MakePacket(fields.type, static_cast<std::uint32_t>(sizeof fields + data.size));
    if (packet == nullptr) return nullptr;
    packet->SetFields(fields);
    if (data.size > 0) std::memcpy(packet->Bytes() + sizeof fields, data.data, data.size);
    return packet;
}

// A packet's type for log and console lines: four letters, control characters as '.'.
struct TypeText {
    char text[5];
};
TypeText ReadableType(std::uint32_t type);
// Deliberate: the first four bytes in memory order, that is, the letters reversed.
TypeText TypeAsStored(const std::uint8_t* packet);

// The id of the request that the packet answers. False: it has none. Only a BUSY or CRES that is
// long enough has one.
bool AnsweredRequest(const Packet& packet, std::uint32_t* id);

// The first 192 bytes of a LOGN, unchanged.
struct LoginRecord {
    std::uint8_t bytes[kLoginSize];

    const std::uint8_t* Mac() const { return bytes + offsetof(LoginWire, mac); }
    std::uint32_t Model() const { return LoadU32(bytes + offsetof(LoginWire, model)); }
};
// The bytes that a shorter LOGN lacks are zero.
LoginRecord LoginFromPacket(const Packet& packet);
// The device name. It ends at its NUL, or with its field.
struct DeviceName {
    char text[sizeof LoginWire::device_name + 1];
};
DeviceName LoginDeviceName(const LoginRecord& login);
DeviceName PrintableDeviceName(const LoginRecord& login);  // for log and console lines

}  // namespace tarvik
