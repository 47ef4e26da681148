#pragma once

namespace tarvik {

// Modal, no owner window, warning icon / one block of text on standard error. Both texts are UTF-8,
// `text` of at most 1023 characters. Returns when the user has closed it.
void OsWarningBox(const char* text, const char* caption);

}  // namespace tarvik
