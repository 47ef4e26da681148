#pragma once

#include <cstdint>

#include "platform/files.h"

namespace tarvik {

// Creates the trace file of the next session that has no file yet, incrementing `*session` before
// each attempt. Null: no file can be created.
OsAppendFile* CreateTraceFile(std::int32_t* session);

// Removes what follows the last line feed within the file's last 65 536 bytes, so that the next
// line starts on a new line.
void BringToCleanLineEnd(OsAppendFile* file);

}  // namespace tarvik
