#include "commands/run_report.h"

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "links/ecu_request.h"
#include "uds/decoding.h"

namespace dpdu {
namespace {

using script::StepRecord;
using script::TestCase;
using Clock = std::chrono::steady_clock;

// Of one test case; a loop may print without end.
constexpr std::size_t kMostOutput = 1 << 20;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string UtcNow() {
    const std::time_t now = std::time(nullptr);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", std::gmtime(&now));
    return text;
}

std::string MsText(double seconds) {
    char text[40];
    std::snprintf(text, sizeof text, "%.1f ms", seconds * 1000);
    return text;
}

std::string AnswersText(const script::UnitAnswers& unit) {
    std::string text;
    for (const Answer& answer : unit.answers)
        text += (text.empty() ? "" : " | ") + HexText(answer.data, " ");
    return text.empty() ? "no answer" : text;
}

std::string Where(const std::string& name, const StepRecord& record) {
    return name + ":" + std::to_string(record.line) + ": ";
}

Json StepJson(const StepRecord& record) {
    Json json = {{"line", record.line},
                 {"step", record.kind},
                 {"text", record.text},
                 {"passed", record.code == ExitCode::kOk},
                 {"seconds", record.seconds}};
    if (!record.request.empty()) json["request"] = HexText(record.request);
    if (!record.units.empty()) {
        Json units = Json::array();
        for (const script::UnitAnswers& unit : record.units)
            units.push_back(ReplyJson(
                EcuReply{unit.ecu, unit.answers, "", ExitCode::kOk, std::nullopt}, record.request));
        json["controlUnits"] = units;
    }
    if (!record.printed.empty()) json["output"] = record.printed;
    if (record.code == ExitCode::kOk) return json;
    json["error"] = OnOneLine(record.message);
    if (!record.expected.empty()) {
        json["expected"] = record.expected;
        json["came"] = record.came;
    }
    return json;
}

std::string CaseName(const script::Step& step) {
    if (const auto* test = std::get_if<script::TestStep>(&step.action)) return test->name;
    return "line " + std::to_string(step.line) + ": " + step.text;
}

// By an answer that was not expected, or that did not come.
bool IsFailedTest(ExitCode code) {
    return code == ExitCode::kUnmetExpectation || code == ExitCode::kNegativeResponse ||
           code == ExitCode::kNoAnswer;
}

const char* ResultName(ExitCode code) {
    if (code == ExitCode::kOk) return "passed";
    if (code == ExitCode::kInterrupted) return "interrupted";
    return IsFailedTest(code) ? "failed" : "error";
}

}  // namespace

std::string StepText(const StepRecord& record) {
    const std::string line = std::to_string(record.line) + ": ";
    if (record.kind == "print") return record.printed;
    if (record.units.empty()) return record.printed.empty() ? "" : line + record.printed;
    std::string text = line + HexText(record.request, " ");
    if (record.kind != "functional") {
        return text + " -> " + AnswersText(record.units.front()) + "  (" + MsText(record.seconds) +
               ")";
    }
    text += "  (" + MsText(record.seconds) + ")";
    for (const script::UnitAnswers& unit : record.units)
        text += "\n  " + EcuAddressText(unit.ecu) + " -> " + AnswersText(unit);
    return text;
}

RunReport::RunReport(Output* output, const std::string& name, const std::string& junit,
                     bool is_quiet)
    : output_(output), is_quiet_(is_quiet), start_(Clock::now()) {
    suite_.name = name;
    suite_.started = UtcNow();
    if (!junit.empty()) file_.emplace(junit);
}

void RunReport::ListCases(const script::Script& script) {
    for (const script::Step& step : script.steps) {
        TestCase& one = suite_.cases.emplace_back();
        one.name = CaseName(step);
    }
}

TestCase* RunReport::CurrentCase() {
    return case_ < suite_.cases.size() ? &suite_.cases[case_] : nullptr;
}

void RunReport::BeginCase() { case_start_ = Clock::now(); }

void RunReport::EndCase() {
    suite_.cases[case_].outcome = TestCase::Outcome::kPassed;
    suite_.cases[case_].seconds = SecondsSince(case_start_);
    ++case_;
}

void RunReport::OnStep(const StepRecord& record) {
    ++steps_;
    if (record.code != ExitCode::kOk) failed_ = record;
    const std::string text = StepText(record);
    TestCase* one = CurrentCase();
    if (one && !text.empty() && one->output.size() < kMostOutput) one->output += text + "\n";
    const bool is_print = record.kind == "print";
    if (output_->AsJson()) {
        output_->JsonLine(StepJson(record));
    } else if (is_print || (!is_quiet_ && !text.empty())) {
        output_->Line(text);
    } else {
        return;
    }
    output_->Flush();
}

void RunReport::Fail(ExitCode code, const std::string& reason) {
    code_ = code;
    reason_ = reason;
    const std::string where =
        failed_.line > 0 ? Where(suite_.name, failed_) + failed_.text + ": " : "";
    ErrorLine(where + reason + NextStep(code));
    TestCase* one = CurrentCase();
    if (!one) one = &suite_.cases.emplace_back();
    if (one->name.empty()) one->name = "end of the script";
    one->outcome = IsFailedTest(code) ? TestCase::Outcome::kFailed : TestCase::Outcome::kBroken;
    one->seconds = case_start_ == Clock::time_point() ? 0 : SecondsSince(case_start_);
    one->message = OnOneLine(reason);
    if (failed_.line == 0) return;
    one->details = "line " + std::to_string(failed_.line) + ": " + failed_.text;
    if (failed_.expected.empty()) return;
    one->details += "\nexpected: " + failed_.expected + "\ncame: " + failed_.came;
}

void RunReport::RefuseSyntax(const std::string& reason) {
    code_ = ExitCode::kUsage;
    reason_ = reason;
    ErrorLine(reason);
    TestCase one;
    one.name = "syntax";
    one.outcome = TestCase::Outcome::kBroken;
    one.message = OnOneLine(reason);
    suite_.cases = {one};
}

void RunReport::EndWithoutReader() {
    code_ = ExitCode::kReaderGone;
    reason_ = "nobody reads the output";
    if (TestCase* one = CurrentCase()) {
        one->outcome = TestCase::Outcome::kBroken;
        one->message = reason_;
    }
}

ExitCode RunReport::Finish(const script::Variables& variables) {
    suite_.seconds = SecondsSince(start_);
    WriteJUnit();  // first: printing may fail
    if (code_ != ExitCode::kReaderGone) PrintSummary(variables);
    return code_;
}

void RunReport::PrintSummary(const script::Variables& variables) {
    if (output_->AsJson()) {
        Json json = {{"script", suite_.name},
                     {"result", ResultName(code_)},
                     {"exitCode", static_cast<int>(code_)},
                     {"steps", steps_},
                     {"seconds", suite_.seconds}};
        if (code_ != ExitCode::kOk) json["error"] = OnOneLine(reason_);
        if (failed_.line > 0) json["line"] = failed_.line;
        Json values = Json::object();
        for (const auto& [name, value] : variables)
            values[name] = HexText(value);
        json["variables"] = values;
        output_->JsonLine(json);
    } else if (code_ == ExitCode::kOk && !is_quiet_) {
        output_->Line("passed: " + std::to_string(steps_) + " steps in " + MsText(suite_.seconds));
    }
    output_->Flush();
}

void RunReport::WriteJUnit() {
    if (file_) file_->Write(script::JUnitText(suite_));
}

}  // namespace dpdu
