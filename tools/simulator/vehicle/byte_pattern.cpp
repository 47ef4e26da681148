#include "vehicle/byte_pattern.h"

#include <algorithm>

namespace brennix {

std::optional<BytePattern::Byte> BytePattern::ParseByte(std::string_view digits) {
    Byte byte = {0, 0};
    for (const char digit : digits) {
        const bool is_free = digit == '?';
        const char padded[] = {'0', is_free ? '0' : digit};
        const std::optional<Bytes> value = ParseHex({padded, 2});
        if (!value || value->size() != 1) return std::nullopt;
        byte.value = static_cast<std::uint8_t>(byte.value << 4 | (*value)[0]);
        byte.mask = static_cast<std::uint8_t>(byte.mask << 4 | (is_free ? 0x0 : 0xF));
    }
    return byte;
}

bool BytePattern::ParseWord(std::string_view word) {
    if (open_ended_) return false;
    if (word == "*") {
        open_ended_ = true;
        return true;
    }
    if (word.size() % 2 != 0) return false;
    for (std::size_t at = 0; at < word.size(); at += 2) {
        const std::optional<Byte> byte = ParseByte(word.substr(at, 2));
        if (!byte) return false;
        bytes_.push_back(*byte);
    }
    return true;
}

std::optional<BytePattern> BytePattern::Parse(std::string_view text) {
    BytePattern pattern;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (!pattern.ParseWord(text.substr(0, end))) return std::nullopt;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return pattern;
}

bool BytePattern::Matches(ByteSpan bytes) const {
    if (bytes.size() < bytes_.size()) return false;
    if (bytes.size() > bytes_.size() && !open_ended_) return false;
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if ((bytes[i] & bytes_[i].mask) != bytes_[i].value) return false;
    }
    return true;
}

}  // namespace brennix
