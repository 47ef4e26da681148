// A script of the client. One that is accepted has values for all its variables; its text, and that
// of a refusal, reads back from JUnit XML.

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "console/failure.h"
#include "script/junit.h"
#include "script/parser.h"
#include "script/values.h"
#include "xml/document.h"

using namespace dpdu;
using namespace dpdu::script;

namespace {

constexpr std::size_t kLargestInput = 4096;

void Require(bool holds) {
    if (!holds) std::abort();
}

// Calls what the steps would call, without a car.
class Walk {
public:
    void Look(const std::vector<Step>& steps, int depth) {
        Require(depth <= 32);
        for (const Step& step : steps) {
            Require(step.line > last_line_ && !step.text.empty());
            last_line_ = step.line;
            depth_ = depth;
            std::visit(*this, step.action);
        }
    }
    void operator()(const RepeatStep& step) {
        Require(step.count >= 1 && !step.steps.empty());
        Look(step.steps, depth_ + 1);
    }
    void operator()(const TestStep& step) {
        Require(!step.name.empty() && depth_ == 0);
        Look(step.steps, depth_ + 1);
    }
    void operator()(const RequestStep& step) { Value(step.request); }
    void operator()(const FunctionalStep& step) { Value(step.request); }
    void operator()(const ExpectStep& step) {
        Require(!step.any_of.empty());
        for (const Alternative& alternative : step.any_of) {
            if (const auto* pattern = std::get_if<Pattern>(&alternative)) Look(*pattern);
        }
    }
    void operator()(const RawSendStep& step) { Value(step.data); }
    void operator()(const RawExpectStep& step) {
        if (step.pattern) Look(*step.pattern);
    }
    void operator()(const SetStep& step) {
        Require(IsVariableName(step.name));
        variables_[step.name] = Value(step.value);
    }
    void operator()(const PrintStep& step) { PrintedText(step, variables_); }
    void operator()(const WaitStep& step) { Require(step.time.count() >= 1); }
    void operator()(const TimeoutStep& step) { Require(step.limit.count() >= 1); }
    void operator()(const SeedKeyStep& step) {
        Require(step.level % 2 == 1 && !step.program.empty());
    }
    void operator()(const ParamStep& step) { Require(!step.name.empty()); }
    void operator()(const EcuStep&) {}
    void operator()(const TesterPresentStep& step) {
        constexpr std::chrono::microseconds kLargest{UINT32_MAX};  // its ComParam's
        if (step.period) Require(*step.period <= kLargest);
    }

private:
    Bytes Value(const script::Value& value) {
        try {
            return Evaluate(value, variables_, kAnswer);
        } catch (const AnswerTooShort&) {
            return {};
        } catch (const ValueTooLarge&) {
            return {};
        }
    }
    void Look(const Pattern& pattern) {
        Require(!PatternText(pattern, variables_).empty());
        Matches(pattern, variables_, kAnswer);
    }

    static inline const Bytes kAnswer = {0x62, 0xF1, 0x90, 0x57};
    Variables variables_ = {{"a", {0x57}}};
    std::size_t last_line_ = 0;
    int depth_ = 0;
};

void ReadBack(const std::string& text) {
    TestCase one;
    one.name = text;
    one.outcome = TestCase::Outcome::kFailed;
    one.message = text;
    one.details = text;
    TestSuite suite;
    suite.cases = {one};
    const xml::Document document = xml::Parse(JUnitText(suite));
    const xml::Element* read = document.root.FindChild("testsuite")->FindChild("testcase");
    Require(*read->FindAttribute("name") == *read->FindChild("failure")->FindAttribute("message"));
    Require(*read->FindAttribute("name") == read->FindChild("failure")->text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > kLargestInput) return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        Walk().Look(ParseScript("car", text, {{"a", {0x57}}}).steps, 0);
    } catch (const UsageError& error) {
        Require(std::string_view(error.what()).starts_with("car:"));
        ReadBack(error.what());
    }
    ReadBack(text);
    return 0;
}
