// Words of a command line, taken from its front.

#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "protocol/wire.h"

namespace brennix {

// "expected a number of bytes, found \"many\""
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string_view SkipBlanks(std::string_view text);

// Each removes what it returns, and the blanks after it, from `rest`. All but the first throw
// UsageError.
std::string_view TakeWord(std::string_view* rest);  // empty at the end
std::uint32_t TakeNumber(std::string_view* rest, const char* what);
Bytes TakeHex(std::string_view* rest);  // up to the end of the line
// 2 for "@2" with the mark '@'; empty if there is no such mark.
std::optional<std::size_t> TakeMark(std::string_view* rest, char mark);

}  // namespace brennix
