#include "platform/message_box.h"

#include <windows.h>

namespace tarvik {

// A text that is too long, or no UTF-8, becomes an empty one: the box itself still tells something.
template <int Capacity>
static void ToUtf16(const char* text, wchar_t (&wide)[Capacity]) {
    if (::MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, Capacity) == 0) wide[0] = L'\0';
}

void OsWarningBox(const char* text, const char* caption) {
    wchar_t wide_text[1024];
    wchar_t wide_caption[128];
    ToUtf16(text, wide_text);
    ToUtf16(caption, wide_caption);
    ::MessageBoxW(nullptr, wide_text, wide_caption, MB_OK | MB_ICONWARNING);
}

}  // namespace tarvik
