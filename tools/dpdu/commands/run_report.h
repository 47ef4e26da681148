// What `dpdu run` says about a script: on standard output, on standard error and as JUnit XML.

#ifndef TOOLS_DPDU_COMMANDS_RUN_REPORT_H
#define TOOLS_DPDU_COMMANDS_RUN_REPORT_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "console/output.h"
#include "script/junit.h"
#include "script/record.h"

namespace dpdu {

// One or several lines for the user; empty for steps about which there is nothing to say.
std::string StepText(const script::StepRecord& record);

class RunReport {
public:
    // An empty `junit`: no file. Quiet: only what the script prints. Throws Failure if the file
    // cannot be written.
    RunReport(Output* output, const std::string& name, const std::string& junit, bool is_quiet);

    // The test cases: the script's outermost steps.
    void ListCases(const script::Script& script);
    void BeginCase();
    void EndCase();
    void OnStep(const script::StepRecord& record);

    // After a failure of the current case or of what is around it: "SCRIPT:LINE: TEXT: REASON".
    void Fail(ExitCode code, const std::string& reason);
    // A line of the script was refused.
    void RefuseSyntax(const std::string& reason);
    // Without a line for the user.
    void EndWithoutReader();

    // The summary, and the JUnit file.
    ExitCode Finish(const script::Variables& variables);

private:
    script::TestCase* CurrentCase();
    void PrintSummary(const script::Variables& variables);
    void WriteJUnit();

    Output* output_;
    bool is_quiet_;
    std::optional<script::ReplacedFile> file_;
    script::TestSuite suite_;
    std::size_t case_ = 0;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point case_start_;
    std::size_t steps_ = 0;
    script::StepRecord failed_;
    ExitCode code_ = ExitCode::kOk;
    std::string reason_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_RUN_REPORT_H
