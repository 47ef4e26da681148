// Splitting a text at a separator.

#ifndef TOOLS_DPDU_TEXT_SPLIT_H
#define TOOLS_DPDU_TEXT_SPLIT_H

#include <string>
#include <vector>

namespace dpdu {

// One part more than there are separators; parts may be empty.
std::vector<std::string> Split(const std::string& text, char separator);

}  // namespace dpdu

#endif  // TOOLS_DPDU_TEXT_SPLIT_H
