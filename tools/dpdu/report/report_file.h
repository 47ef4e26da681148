// Writes the report: one HTML file that needs nothing else.

#ifndef TOOLS_DPDU_REPORT_REPORT_FILE_H
#define TOOLS_DPDU_REPORT_REPORT_FILE_H

#include "console/output.h"
#include "report/report_data.h"

namespace dpdu::report {

class ReportFile {
public:
    explicit ReportFile(Output* output);

    ReportData& Data() { return data_; }
    // Called after the last file.
    void Finish(bool has_calendar_time);

private:
    void Write(const Chunk& chunk);

    Output* output_;
    ReportData data_;
};

}  // namespace dpdu::report

#endif  // TOOLS_DPDU_REPORT_REPORT_FILE_H
