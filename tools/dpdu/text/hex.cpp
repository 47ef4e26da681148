#include "text/hex.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <sstream>

namespace dpdu {
namespace {

bool HasPrefix(const std::string& text) {
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

std::string WithoutPrefix(const std::string& text) {
    return HasPrefix(text) ? text.substr(2) : text;
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

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// "a:b:" has three parts, the last of them empty.
std::vector<std::string> Parts(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

// False unless the text is a row of pairs of digits.
bool AppendRow(const std::string& digits, Bytes* bytes) {
    if (digits.size() % 2 != 0) return false;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const int upper = DigitValue(digits[i]);
        const int lower = DigitValue(digits[i + 1]);
        if (upper < 0 || lower < 0) return false;
        bytes->push_back(static_cast<std::uint8_t>(upper * 16 + lower));
    }
    return true;
}

// False unless each text is one pair of digits.
bool AppendAll(const std::vector<std::string>& pairs, Bytes* bytes) {
    return std::all_of(pairs.begin(), pairs.end(), [bytes](const std::string& pair) {
        return pair.size() == 2 && AppendRow(pair, bytes);
    });
}

}  // namespace

std::optional<Bytes> ParseHex(const std::string& text) {
    const std::vector<std::string> words = Words(text);
    Bytes bytes;
    if (words.empty()) return bytes;
    const bool is_prefixed = HasPrefix(words.front());
    if (words.size() == 1 && words.front().find(':') != std::string::npos) {
        if (!AppendAll(Parts(words.front(), ':'), &bytes)) return std::nullopt;
    } else if (words.size() == 1) {
        if (!AppendRow(WithoutPrefix(words.front()), &bytes)) return std::nullopt;
    } else {
        std::vector<std::string> digits;
        for (const std::string& word : words) {
            if (HasPrefix(word) != is_prefixed) return std::nullopt;
            digits.push_back(WithoutPrefix(word));
        }
        if (!AppendAll(digits, &bytes)) return std::nullopt;
    }
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
