// The report's page, made of the files in viewer/ by the build.

#ifndef TOOLS_DPDU_REPORT_PAGE_H
#define TOOLS_DPDU_REPORT_PAGE_H

#include <string_view>

namespace dpdu::report {

// The data belongs between them.
extern const std::string_view kPageHead;
extern const std::string_view kPageTail;

}  // namespace dpdu::report

#endif  // TOOLS_DPDU_REPORT_PAGE_H
