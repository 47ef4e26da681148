// What came of a step.

#ifndef TOOLS_DPDU_SCRIPT_RECORD_H
#define TOOLS_DPDU_SCRIPT_RECORD_H

#include <string>
#include <vector>

#include "console/failure.h"
#include "links/com_primitive.h"
#include "script/script.h"

namespace dpdu::script {

// The answers of one control unit to the last request.
struct UnitAnswers {
    EcuAddress ecu;
    std::vector<Answer> answers;
};

// An answer, or its absence, that a step does not allow.
class Unmet : public Failure {
public:
    Unmet(const std::string& expected, const std::string& came, ExitCode code)
        : Failure("expected " + expected + ", came " + came, code),
          expected_(expected),
          came_(came) {}

    const std::string& Expected() const { return expected_; }
    const std::string& Came() const { return came_; }

private:
    std::string expected_;
    std::string came_;
};

struct StepRecord {
    std::size_t line = 0;
    std::string kind;
    std::string text;                // as in the script
    Bytes request;                   // as sent; empty: none
    std::vector<UnitAnswers> units;  // of a request
    std::string printed;             // print, set, raw steps: a line for the user
    double seconds = 0;
    // If the step failed:
    ExitCode code = ExitCode::kOk;
    std::string message;
    std::string expected;  // both empty: no expectation failed
    std::string came;
};

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_RECORD_H
