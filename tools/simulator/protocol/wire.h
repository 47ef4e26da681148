// The packet format between dongle and library, seen from the dongle.
//
// Written from the protocol's description alone: the simulator shares no code with the library, so
// that a mistake in either shows as a disagreement.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brennix {

using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;

inline ByteSpan AsBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kMaxPacketSize = 4096;
constexpr std::uint32_t kMaxCanId = 0x1FFFFFFF;

// The first letter is the most significant byte, so the letters are reversed on the wire.
constexpr std::uint32_t TypeCode(const char (&name)[5]) {
    std::uint32_t code = 0;
    for (int i = 0; i < 4; ++i)
        code = (code << 8) | static_cast<std::uint8_t>(name[i]);
    return code;
}

namespace type {
inline constexpr std::uint32_t kSync = TypeCode("SYNC");
inline constexpr std::uint32_t kIden = TypeCode("IDEN");
inline constexpr std::uint32_t kLogn = TypeCode("LOGN");
inline constexpr std::uint32_t kAddr = TypeCode("ADDR");
inline constexpr std::uint32_t kCreq = TypeCode("CREQ");
inline constexpr std::uint32_t kCres = TypeCode("CRES");
inline constexpr std::uint32_t kBusy = TypeCode("BUSY");
inline constexpr std::uint32_t kRawc = TypeCode("RAWC");
inline constexpr std::uint32_t kTspr = TypeCode("TSPR");
inline constexpr std::uint32_t kDoip = TypeCode("DOIP");
inline constexpr std::uint32_t kTele = TypeCode("TELE");
inline constexpr std::uint32_t kFrag = TypeCode("FRAG");
inline constexpr std::uint32_t kPing = TypeCode("PING");
inline constexpr std::uint32_t kRepl = TypeCode("REPL");
inline constexpr std::uint32_t kLog = TypeCode("LOG ");
inline constexpr std::uint32_t kLogc = TypeCode("LOGC");
inline constexpr std::uint32_t kCryp = TypeCode("CRYP");
inline constexpr std::uint32_t kNhs1 = TypeCode("NHS1");
inline constexpr std::uint32_t kNhs2 = TypeCode("NHS2");
inline constexpr std::uint32_t kDevi = TypeCode("DEVI");
inline constexpr std::uint32_t kDeva = TypeCode("DEVA");
}  // namespace type

// All numbers on the wire are little-endian.
inline std::uint16_t LoadU16(const std::uint8_t* at) {
    return static_cast<std::uint16_t>(at[0] | (at[1] << 8));
}
inline std::uint32_t LoadU32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(at[0]) | (static_cast<std::uint32_t>(at[1]) << 8) |
           (static_cast<std::uint32_t>(at[2]) << 16) | (static_cast<std::uint32_t>(at[3]) << 24);
}
void AppendU16(Bytes* out, std::uint16_t value);
void AppendU32(Bytes* out, std::uint32_t value);
void AppendBytes(Bytes* out, ByteSpan bytes);
// The text, then zeros up to `width` bytes; a text that fills the field has no NUL.
void AppendText(Bytes* out, std::string_view text, std::size_t width);

// `packet` has at least a header.
inline std::uint32_t PacketType(ByteSpan packet) { return LoadU32(packet.data()); }
inline std::uint32_t PacketLength(ByteSpan packet) { return LoadU32(packet.data() + 4); }
inline ByteSpan PacketPayload(ByteSpan packet) { return packet.subspan(kHeaderSize); }

Bytes MakePacket(std::uint32_t type, ByteSpan payload);

// "CREQ", "LOG "; "0x01020304" for a code that is not four printable characters.
std::string TypeName(std::uint32_t type);
// Four letters; "LOG" means "LOG ". Empty if the text is not a type name.
std::optional<std::uint32_t> ParseTypeName(std::string_view name);

std::string ToHex(ByteSpan bytes);
// Pairs of hex digits; blanks are allowed between bytes.
std::optional<Bytes> ParseHex(std::string_view text);

}  // namespace brennix
