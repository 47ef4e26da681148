#pragma once

#include <cstddef>
#include <cstdint>

#include "link/wire.h"
#include "support/memory.h"

namespace tarvik {

// Type codes are 32-bit integers whose most significant byte is the first letter.
// Deliberate: stored little-endian, the letters stand in reverse order on the wire ("QERC").
constexpr std::uint32_t TypeCode(const char (&letters)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(letters[0])) << 24 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[1])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[2])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(letters[3]));
}

inline constexpr std::uint32_t kTypeSync = TypeCode("SYNC");
inline constexpr std::uint32_t kTypeIden = TypeCode("IDEN");
inline constexpr std::uint32_t kTypeLogn = TypeCode("LOGN");
inline constexpr std::uint32_t kTypeAddr = TypeCode("ADDR");
inline constexpr std::uint32_t kTypeCreq = TypeCode("CREQ");
inline constexpr std::uint32_t kTypeCres = TypeCode("CRES");
inline constexpr std::uint32_t kTypeBusy = TypeCode("BUSY");
inline constexpr std::uint32_t kTypeRawc = TypeCode("RAWC");
inline constexpr std::uint32_t kTypeTspr = TypeCode("TSPR");
inline constexpr std::uint32_t kTypeDoip = TypeCode("DOIP");
inline constexpr std::uint32_t kTypeTele = TypeCode("TELE");
inline constexpr std::uint32_t kTypeFrag = TypeCode("FRAG");
inline constexpr std::uint32_t kTypePing = TypeCode("PING");
inline constexpr std::uint32_t kTypeRepl = TypeCode("REPL");
inline constexpr std::uint32_t kTypeLog = TypeCode("LOG ");
inline constexpr std::uint32_t kTypeCryp = TypeCode("CRYP");
inline constexpr std::uint32_t kTypeNhs1 = TypeCode("NHS1");
inline constexpr std::uint32_t kTypeNhs2 = TypeCode("NHS2");
inline constexpr std::uint32_t kTypeDevi = TypeCode("DEVI");
inline constexpr std::uint32_t kTypeDeva = TypeCode("DEVA");

inline constexpr std::uint32_t MIN_PKT_SIZE = 8;
inline constexpr std::uint32_t MAX_PKT_SIZE = 4096;  // on a byte stream, and after reassembly
inline constexpr std::uint32_t kLoginSize = 192;
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
};
static_assert(sizeof(Packet) == 8);

using PacketPtr = Tracked<Packet>;

// `length` zero bytes with type and length filled in; null when memory is out.
PacketPtr MakePacket(std::uint32_t type, std::uint32_t length);
PacketPtr CopyPacket(const Packet& packet);

// The login record: the first 192 bytes of a LOGN, as the dongle sent them.
struct LoginRecord {
    std::uint8_t bytes[kLoginSize];

    const std::uint8_t* Mac() const { return bytes + 12; }
    std::uint32_t Model() const { return LoadU32(bytes + 20); }
};
// A LOGN shorter than 192 bytes counts as far as it goes, the rest as zero.
LoginRecord LoginFromPacket(const Packet& packet);
// The device name, bounded by its field, which need not hold a NUL.
struct DeviceName {
    char text[33];
};
DeviceName LoginDeviceName(const LoginRecord& login);

}  // namespace tarvik
