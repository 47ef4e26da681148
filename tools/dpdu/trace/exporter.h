// Converts a trace to the formats of other programs.

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
    // Whether the times of the records that follow count from 1970, UTC; otherwise they are those
    // of the computer's performance counter.
    virtual void BeginFile(bool since_1970) = 0;
    virtual void Take(const Record& record) = 0;
    virtual void EndOfFile() = 0;
    // Called after the last file.
    virtual void Finish() = 0;
    // What the format could not represent, one line each.
    virtual std::vector<std::string> Losses() const { return {}; }
};

// candump log: one frame per line, without comments.
std::unique_ptr<Exporter> MakeCandumpExporter(Output* output);
// Vector's text format, with a comment before everything that is not exactly one recorded frame.
std::unique_ptr<Exporter> MakeAscExporter(Output* output);
// Packet captures as Wireshark reads them: raw frames, and requests and answers for its UDS
// dissector. Binary.
std::unique_ptr<Exporter> MakePcapngExporter(Output* output);
// Trace event format of Chrome and Perfetto.
std::unique_ptr<Exporter> MakeChromeExporter(Output* output);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_EXPORTER_H
