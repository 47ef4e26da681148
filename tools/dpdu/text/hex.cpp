#include "text/hex.h"

#include <charconv>
#include <cstdio>

namespace dpdu {
namespace {

std::string WithoutPrefix(const std::string& text) {
    const bool has_prefix = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    return has_prefix ? text.substr(2) : text;
}

std::optional<std::uint32_t> ParseWhole(const std::string& digits, int base) {
    std::uint32_t value = 0;
    const char* end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, value, base);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

int DigitValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

}  // namespace

std::optional<Bytes> ParseHex(const std::string& text) {
    Bytes bytes;
    int upper = -1;  // first digit of an incomplete byte; -1: none
    for (const char character : WithoutPrefix(text)) {
        if (character == ' ' && upper < 0) continue;
        const int digit = DigitValue(character);
        if (digit < 0) return std::nullopt;
        if (upper < 0) {
            upper = digit;
            continue;
        }
        bytes.push_back(static_cast<std::uint8_t>(upper * 16 + digit));
        upper = -1;
    }
    if (upper >= 0) return std::nullopt;
    return bytes;
}

std::string HexText(const Bytes& bytes, const char* separator) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) text += separator;
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

std::string HexNumber(std::uint32_t value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*X", digits, value);
    return text;
}

std::optional<std::uint32_t> ParseNumber(const std::string& text) {
    const std::string digits = WithoutPrefix(text);
    return ParseWhole(digits, digits.size() == text.size() ? 10 : 16);
}

std::optional<std::uint32_t> ParseHexNumber(const std::string& text) {
    return ParseWhole(WithoutPrefix(text), 16);
}

}  // namespace dpdu
