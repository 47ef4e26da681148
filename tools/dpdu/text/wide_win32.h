// UTF-8, which the program uses, and UTF-16, which Windows uses.

#ifndef TOOLS_DPDU_TEXT_WIDE_WIN32_H
#define TOOLS_DPDU_TEXT_WIDE_WIN32_H

#include <string>
#include <string_view>

namespace dpdu {

// What is not UTF-8 becomes the replacement character.
std::wstring ToWide(const std::string& text);
std::string FromWide(std::wstring_view wide);

}  // namespace dpdu

#endif  // TOOLS_DPDU_TEXT_WIDE_WIN32_H
