// Bytes as hexadecimal text, in both directions.

#ifndef TOOLS_DPDU_TEXT_HEX_H
#define TOOLS_DPDU_TEXT_HEX_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace dpdu {

using Bytes = std::vector<std::uint8_t>;

// The forms of bytes that a user may write, for messages and help.
inline constexpr char kHexForms[] = "22F190, 22 F1 90, 22:F1:90 or 0x22 0xF1 0x90";

// Accepts these forms and "0x22F190", with digits of either case and any blanks between, before and
// after; empty for blanks alone. nullopt for anything else, also for a mixture of the forms.
std::optional<Bytes> ParseHex(const std::string& text);

// "22F190", or "22 F1 90" with a separator.
std::string HexText(const Bytes& bytes, const char* separator = "");

// "7E8": a number without prefix, at least `digits` digits.
std::string HexNumber(std::uint32_t value, int digits);

// Decimal ("1000") or hexadecimal with prefix ("0x3E8"), at most 32 bits.
std::optional<std::uint32_t> ParseNumber(const std::string& text);

// Hexadecimal with or without prefix ("7E0", "0x18DA10F1"), at most 32 bits.
std::optional<std::uint32_t> ParseHexNumber(const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_TEXT_HEX_H
