#pragma once

#include "platform/files.h"

namespace tarvik {

// The temporary folder with its trailing separator, in `buffer`. If the system gives none that
// fits, the fallback, which is not created: opening a file in it may fail.
const char* TempFolder(char (&buffer)[kMaxPath]);

}  // namespace tarvik
