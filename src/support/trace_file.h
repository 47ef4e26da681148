#pragma once

#include <cstdint>

#include "platform/files.h"

namespace tarvik {

// Creates the trace file of the next session that has no file yet; `*session` is counted up before
// each attempt. Null: no file can be created.
OsAppendFile* CreateTraceFile(std::int32_t* session);

// Cuts off what stands behind the last line feed within the file's last 65 536 bytes, so that the
// next line starts on a line of its own.
void BringToCleanLineEnd(OsAppendFile* file);

}  // namespace tarvik
