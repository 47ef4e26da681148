// Reads a trace file from beginning to end.

#ifndef TOOLS_DPDU_TRACE_FILE_H
#define TOOLS_DPDU_TRACE_FILE_H

#include <string>

#include "trace/reader.h"

namespace dpdu::trace {

// Throws Failure if the file cannot be read or the user has interrupted the program.
ReadReport ReadTraceFile(const std::string& path, const LineReader::Handler& handler);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_FILE_H
