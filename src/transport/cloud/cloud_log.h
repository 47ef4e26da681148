#pragma once

#include "support/log.h"

namespace tarvik {

// One line of the cloud transport's progress, for the debug log and for the console. `format` ends
// in the console's line end, "\n" or "\r\n"; the debug log has its own.
void CloudLog(const char* format, ...) TARVIK_PRINTF(1, 2);

}  // namespace tarvik
