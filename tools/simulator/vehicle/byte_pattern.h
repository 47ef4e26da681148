// A pattern for bytes: fixed bytes, wildcard digits, open end.

#pragma once

#include <optional>
#include <string_view>

#include "protocol/wire.h"

namespace brennix {

class BytePattern {
public:
    // "22 F1 90"; "??" matches any byte, "1?" one with that first digit, a final "*" any further
    // bytes. Empty if the text is not a pattern.
    static std::optional<BytePattern> Parse(std::string_view text);

    bool Matches(ByteSpan bytes) const;

private:
    struct Byte {
        std::uint8_t value;
        std::uint8_t mask;  // bits compared
    };

    static std::optional<Byte> ParseByte(std::string_view digits);
    bool ParseWord(std::string_view word);

    std::vector<Byte> bytes_;
    bool open_ended_ = false;
};

}  // namespace brennix
