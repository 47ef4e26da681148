// A script: steps in order, as they were parsed. docs/scripts.md describes the language.

#ifndef TOOLS_DPDU_SCRIPT_SCRIPT_H
#define TOOLS_DPDU_SCRIPT_SCRIPT_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "raw/can_frame.h"
#include "text/hex.h"
#include "uds/ecu_address.h"

namespace dpdu::script {

// The bytes of variables, by name.
using Variables = std::map<std::string, Bytes>;

// Some bytes of the last answer: from `first`, to `last` if set, else to its end.
struct AnswerSlice {
    std::size_t first = 0;
    std::optional<std::size_t> last;
};
struct VariableName {
    std::string name;
};
// Bytes that are known when the step is executed: its parts, one after the other.
using Value = std::vector<std::variant<Bytes, VariableName, AnswerSlice>>;

struct AnyByte {};
struct Pattern {
    std::vector<std::variant<Bytes, VariableName, AnyByte>> parts;
    bool is_open = false;  // ends with "..": anything may follow
};

struct NoAnswer {};
struct PositiveAnswer {};
struct NegativeAnswer {
    std::optional<std::uint8_t> code;  // unset: any
};
using Alternative = std::variant<Pattern, NoAnswer, PositiveAnswer, NegativeAnswer>;

struct RequestStep {
    Value request;
    bool is_checked_later = false;  // an expectation follows
};
struct FunctionalStep {
    Value request;
    std::uint32_t id = 0x7DF;
    std::vector<EcuAddress> units;  // empty: the current control unit
    bool are_all_checked_later = false;
    std::set<std::uint32_t> checked_later;  // response identifiers for which expectations follow
};
struct ExpectStep {
    std::optional<std::uint32_t>
        from;  // response identifier; unset: each control unit that was asked
    std::vector<Alternative> any_of;
};
struct WaitStep {
    std::chrono::milliseconds time{0};
};
struct SeedKeyStep {
    std::uint8_t level = 1;
    std::string program;
    std::vector<std::string> arguments;
};
struct RawSendStep {
    CanFrame frame;  // without data
    Value data;
};
struct RawExpectStep {
    CanFrame frame;                  // without data
    std::optional<Pattern> pattern;  // unset: any data
    std::chrono::milliseconds limit{1000};
};
struct SetStep {
    std::string name;
    Value value;
};
struct PrintedVariable {
    std::string name;
    bool as_text = false;  // else in hexadecimal
};
struct PrintStep {
    std::vector<std::variant<std::string, PrintedVariable>> parts;
};
struct EcuStep {
    EcuAddress ecu;
};
struct TimeoutStep {
    std::chrono::milliseconds limit{0};
};
struct ParamStep {
    std::string name;
    std::string value;
};
struct TesterPresentStep {
    std::optional<std::chrono::milliseconds> period;  // unset: off
};
struct Step;
struct RepeatStep {
    std::uint32_t count = 1;
    std::vector<Step> steps;
};
struct TestStep {
    std::string name;
    std::vector<Step> steps;
};

using Action = std::variant<RequestStep, FunctionalStep, ExpectStep, WaitStep, SeedKeyStep,
                            RawSendStep, RawExpectStep, SetStep, PrintStep, EcuStep, TimeoutStep,
                            ParamStep, TesterPresentStep, RepeatStep, TestStep>;

struct Step {
    std::size_t line = 0;  // from 1
    std::string text;      // as written, without comment and blanks around it
    Action action;
};

struct Script {
    std::string name;  // of its file, for messages
    std::vector<Step> steps;
};

// "request", "functional", "expect" ...
const char* KindOf(const Action& action);

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_SCRIPT_H
