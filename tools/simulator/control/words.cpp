#include "control/words.h"

#include <algorithm>
#include <charconv>

namespace brennix {

std::string_view SkipBlanks(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

std::string_view TakeWord(std::string_view* rest) {
    *rest = SkipBlanks(*rest);
    const std::size_t end = std::min(rest->find(' '), rest->size());
    const std::string_view word = rest->substr(0, end);
    *rest = SkipBlanks(rest->substr(end));
    return word;
}

std::uint32_t TakeNumber(std::string_view* rest, const char* what) {
    const std::string_view word = TakeWord(rest);
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size()) {
        throw UsageError(std::string("expected ") + what + ", found \"" + std::string(word) + "\"");
    }
    return number;
}

Bytes TakeHex(std::string_view* rest) {
    const std::optional<Bytes> bytes = ParseHex(*rest);
    if (!bytes) throw UsageError("expected hex bytes, found \"" + std::string(*rest) + "\"");
    *rest = {};
    return *bytes;
}

std::optional<std::size_t> TakeMark(std::string_view* rest, char mark) {
    if (!rest->starts_with(mark)) return std::nullopt;
    const std::string_view word = TakeWord(rest).substr(1);
    std::size_t number = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number);
    if (error != std::errc() || stop != end) {
        throw UsageError(std::string("expected a number after ") + mark + ", found \"" +
                         std::string(word) + "\"");
    }
    return number;
}

}  // namespace brennix
