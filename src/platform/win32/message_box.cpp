#include "platform/message_box.h"

#include <windows.h>

namespace tarvik {

namespace {

// A text that is too long or not UTF-8 becomes empty: the box itself still shows that something is
// wrong.
template <int Capacity>
void ToUtf16(const char* text, wchar_t (&wide)[Capacity]) {
    if (::MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, Capacity) == 0) wide[0] = L'\0';
}

}  // namespace

void OsWarningBox(const char* text, const char* caption) {
    wchar_t wide_text[1024];
    wchar_t wide_caption[128];
    ToUtf16(text, wide_text);
    ToUtf16(caption, wide_caption);
    ::MessageBoxW(nullptr, wide_text, wide_caption, MB_OK | MB_ICONWARNING);
}

}  // namespace tarvik
