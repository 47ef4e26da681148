// A trace in the formats of other programs.

#ifndef TOOLS_DPDU_TRACE_EXPORTER_H
#define TOOLS_DPDU_TRACE_EXPORTER_H

#include <memory>
#include <string>
#include <vector>

#include "console/output.h"
#include "trace/record.h"

namespace dpdu::trace {

class Exporter {
public:
    virtual ~Exporter() = default;
    virtual void Take(const Record& record) = 0;
    virtual void EndOfFile() = 0;
    // After the last file.
    virtual void Finish() = 0;
    // What the format could not take, one line each.
    virtual std::vector<std::string> Losses() const { return {}; }
};

// The log of candump: one frame a line. It has no room for comments.
std::unique_ptr<Exporter> MakeCandumpExporter(Output* output);
// Vector's text format, with a comment in front of what is not exactly one recorded frame.
std::unique_ptr<Exporter> MakeAscExporter(Output* output);
// The trace event format of Chrome and Perfetto.
std::unique_ptr<Exporter> MakeChromeExporter(Output* output);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_EXPORTER_H
