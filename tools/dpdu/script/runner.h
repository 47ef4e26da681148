// Executes the steps of a script.

#ifndef TOOLS_DPDU_SCRIPT_RUNNER_H
#define TOOLS_DPDU_SCRIPT_RUNNER_H

#include <chrono>
#include <functional>
#include <vector>

#include "script/record.h"
#include "script/script.h"
#include "script/script_links.h"

namespace dpdu::script {

struct RunnerOptions {
    EcuAddress ecu;
    Variables variables;
    std::chrono::milliseconds key_limit{10'000};  // for the program of seed-key
};

class Runner {
public:
    using OnStep = std::function<void(const StepRecord&)>;

    // `on_step` gets a record of each step after it was executed, also of the one that fails.
    Runner(ScriptLinks* links, const RunnerOptions& options, OnStep on_step);

    // Executes the step and those inside of it. Throws Failure at the first that fails; the last
    // record is of that step.
    void Execute(const Step& step);

    const Variables& Values() const { return variables_; }

private:
    void Dispatch(const Step& step, StepRecord* record);
    void Run(const RequestStep& step, StepRecord* record);
    void Run(const FunctionalStep& step, StepRecord* record);
    void Run(const ExpectStep& step, StepRecord* record);
    void Run(const WaitStep& step, StepRecord* record);
    void Run(const SeedKeyStep& step, StepRecord* record);
    void Run(const RawSendStep& step, StepRecord* record);
    void Run(const RawExpectStep& step, StepRecord* record);
    void Run(const SetStep& step, StepRecord* record);
    void Run(const PrintStep& step, StepRecord* record);
    void Run(const EcuStep& step, StepRecord* record);
    void Run(const TimeoutStep& step, StepRecord* record);
    void Run(const ParamStep& step, StepRecord* record);
    void Run(const TesterPresentStep& step, StepRecord* record);

    void Ask(const LinkTargets& targets, const Bytes& request, StepRecord* record);
    void RequirePositive(const UnitAnswers& unit) const;
    void ExpectFrom(const ExpectStep& step, const UnitAnswers& unit) const;
    std::string CameText(const UnitAnswers& unit) const;

    ScriptLinks* links_;
    RunnerOptions options_;
    OnStep on_step_;
    Variables variables_;
    EcuAddress ecu_;
    Bytes request_;                     // the last one
    std::vector<UnitAnswers> answers_;  // to it
    std::string silence_;               // what the library reported of a request without an answer
};

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_RUNNER_H
