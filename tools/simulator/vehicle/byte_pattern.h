// What bytes may look like: written out, with free digits, with an open end.

#pragma once

#include <optional>
#include <string_view>

#include "protocol/wire.h"

namespace brennix {

class BytePattern {
public:
    // "22 F1 90"; "??" is any byte, "1?" one with that first digit, "*" at the end any more bytes.
    // Nothing for a text that is no pattern.
    static std::optional<BytePattern> Parse(std::string_view text);

    bool Matches(ByteSpan bytes) const;

private:
    struct Byte {
        std::uint8_t value;
        std::uint8_t mask;  // bits that count
    };

    static std::optional<Byte> ParseByte(std::string_view digits);
    bool ParseWord(std::string_view word);

    std::vector<Byte> bytes_;
    bool open_ended_ = false;
};

}  // namespace brennix
