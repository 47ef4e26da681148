#pragma once

#include <cstdint>

namespace tarvik {

enum class BoxIcon : std::uint8_t { kError, kWarning };

// Modal, no owner window / one block of text on standard error, without the icon. Both texts are
// UTF-8, `text` of at most 1023 characters. Returns when the user has closed it.
void OsMessageBox(const char* text, const char* caption, BoxIcon icon);

}  // namespace tarvik
