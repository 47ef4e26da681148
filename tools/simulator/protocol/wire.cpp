#include "protocol/wire.h"

#include <algorithm>

namespace brennix {

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

void AppendU16(Bytes* out, std::uint16_t value) {
    out->push_back(static_cast<std::uint8_t>(value & 0xFF));
    out->push_back(static_cast<std::uint8_t>(value >> 8));
}

void AppendU32(Bytes* out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out->push_back(static_cast<std::uint8_t>((value >> shift) & 0xFF));
    }
}

void AppendBytes(Bytes* out, ByteSpan bytes) {
    out->insert(out->end(), bytes.begin(), bytes.end());
}

void AppendText(Bytes* out, std::string_view text, std::size_t width) {
    const std::size_t used = std::min(text.size(), width);
    out->insert(out->end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(used));
    out->insert(out->end(), width - used, 0);
}

Bytes MakePacket(std::uint32_t type, ByteSpan payload) {
    Bytes packet;
    packet.reserve(kHeaderSize + payload.size());
    AppendU32(&packet, type);
    AppendU32(&packet, static_cast<std::uint32_t>(kHeaderSize + payload.size()));
    AppendBytes(&packet, payload);
    return packet;
}

std::string TypeName(std::uint32_t type) {
    std::string name;
    for (int shift = 24; shift >= 0; shift -= 8) {
        name.push_back(static_cast<char>((type >> shift) & 0xFF));
    }
    const auto printable = [](char c) { return c >= ' ' && c <= '~'; };
    if (std::all_of(name.begin(), name.end(), printable)) return name;
    static constexpr char kDigits[] = "0123456789ABCDEF";
    name = "0x";
    for (int shift = 28; shift >= 0; shift -= 4)
        name.push_back(kDigits[(type >> shift) & 0xF]);
    return name;
}

std::optional<std::uint32_t> ParseTypeName(std::string_view name) {
    if (name.size() < 3 || name.size() > 4) return std::nullopt;
    std::uint32_t code = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const char letter = i < name.size() ? name[i] : ' ';
        if (letter < ' ' || letter > '~') return std::nullopt;
        code = (code << 8) | static_cast<std::uint8_t>(letter);
    }
    return code;
}

std::string ToHex(ByteSpan bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0xF]);
    }
    return text;
}

std::optional<Bytes> ParseHex(std::string_view text) {
    Bytes bytes;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        if (i + 1 >= text.size()) return std::nullopt;
        const int high = HexDigit(text[i]);
        const int low = HexDigit(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
        i += 2;
    }
    return bytes;
}

}  // namespace brennix
