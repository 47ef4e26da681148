#include "support/trace_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace tarvik {
namespace {

constexpr std::size_t kMaxDigits = 20;

template <typename Integer>
std::string_view Decimal(char (&digits)[kMaxDigits], Integer value) {
    const char* end = std::to_chars(digits, digits + kMaxDigits, value).ptr;
    return {digits, static_cast<std::size_t>(end - digits)};
}

constexpr std::array<std::array<char, 2>, 256> kHexPairs = [] {
    std::array<std::array<char, 2>, 256> pairs{};
    constexpr char kDigits[] = "0123456789abcdef";
    for (std::size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = {kDigits[i >> 4], kDigits[i & 15]};
    return pairs;
}();

// The JSON form of a character; empty: it is left out.
std::string_view EscapeOf(const char& character) {
    switch (character) {
        case '"':
            return "\\\"";
        case '\\':
            return "\\\\";
        case '\t':
            return "\\t";
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        default:
            return {&character, character >= 32 && character <= 126 ? 1u : 0u};
    }
}

}  // namespace

TraceWriter& TraceWriter::Text(std::string_view text) {
    const std::size_t room = limit_ - length_;
    if (text.size() > room) was_cut_ = true;
    const std::size_t size = std::min(text.size(), room);
    std::memcpy(buffer_ + length_, text.data(), size);
    length_ += size;
    return *this;
}

TraceWriter& TraceWriter::WriteNumber(std::uint64_t value) {
    char digits[kMaxDigits];
    return Text(Decimal(digits, value));
}

TraceWriter& TraceWriter::WriteSigned(std::int64_t value) {
    char digits[kMaxDigits];
    return Text(Decimal(digits, value));
}

std::uint32_t TraceWriter::HexBytes(std::size_t length) {
    return static_cast<std::uint32_t>(std::min(length, kMaxHexBytes));
}

TraceWriter& TraceWriter::Digits(const void* data, std::size_t length) {
    char digits[2 * kMaxHexBytes];
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    const std::size_t count = HexBytes(length);
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(digits + 2 * i, kHexPairs[bytes[i]].data(), 2);
    }
    return Text({digits, 2 * count});
}

bool TraceWriter::Escaped(const char* text, std::size_t length, std::size_t max_output) {
    std::size_t output = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const std::string_view escaped = EscapeOf(text[i]);
        if (escaped.size() > max_output - output) return false;
        Text(escaped);
        output += escaped.size();
    }
    return true;
}

void TraceWriter::RollBack(std::size_t length) {
    length_ = length;
    was_cut_ = false;
}

}  // namespace tarvik
