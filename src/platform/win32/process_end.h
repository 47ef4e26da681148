#pragma once

#include <string_view>

namespace tarvik {

// As OsPrint, for at most 512 characters, while the process ends: Windows has ended the other
// threads then, perhaps inside a lock of the process, so this takes none.
void PrintAtProcessEnd(std::string_view text);

}  // namespace tarvik
