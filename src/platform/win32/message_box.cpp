#include "platform/message_box.h"

#include <windows.h>

#include "platform/win32/utf16.h"

namespace tarvik {

// A text that is too long becomes empty: the box itself still shows that something is wrong.
void OsMessageBox(const char* text, const char* caption, BoxIcon icon) {
    const UINT kind = icon == BoxIcon::kError ? MB_ICONERROR : MB_ICONWARNING;
    ::MessageBoxW(nullptr, ShownText<1024>(text).Get(), ShownText<128>(caption).Get(),
                  MB_OK | kind);
}

}  // namespace tarvik
