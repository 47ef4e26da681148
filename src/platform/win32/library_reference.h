#pragma once

#include <windows.h>

namespace tarvik {

// As OsReleaseLibrary, once this callback of the system's thread pool has returned from the
// library. Not null.
void ReleaseLibraryAfter(PTP_CALLBACK_INSTANCE callback, void* reference);

}  // namespace tarvik
