#pragma once

#include "platform/files.h"

namespace tarvik {

// The temporary folder with its trailing separator, in `buffer` or, when the system names none
// that fits, the fallback. Nobody creates the fallback folder: opening a file in it then fails.
const char* TempFolder(char (&buffer)[kMaxPath]);

}  // namespace tarvik
