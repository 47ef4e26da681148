// UTF-8, which the program uses, and UTF-16, which Windows uses.

#ifndef TOOLS_DPDU_TEXT_WIDE_WIN32_H
#define TOOLS_DPDU_TEXT_WIDE_WIN32_H

#include <cstddef>
#include <string>
#include <string_view>

namespace dpdu {

// What is not UTF-8 becomes the replacement character.
std::wstring ToWide(const std::string& text);
std::string FromWide(std::wstring_view wide);

// The length of the text's beginning, at most `most` units, which divides no pair of surrogates.
std::size_t WholeCharacters(std::wstring_view text, std::size_t most);
// Every line feed after a carriage return, also if the text has none there.
std::string WithCarriageReturns(const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_TEXT_WIDE_WIN32_H
