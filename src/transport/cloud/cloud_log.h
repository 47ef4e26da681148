#pragma once

#include "support/log.h"

namespace tarvik {

// Writes a line about the cloud transport's progress to the debug log and to the console. `format`
// ends with the console's line end, "\n" or "\r\n"; the debug log adds its own.
void CloudLog(const char* format, ...) TARVIK_PRINTF(1, 2);

}  // namespace tarvik
