// Bytes of requests, patterns of answers and printed texts: parsing them, and their values.

#ifndef TOOLS_DPDU_SCRIPT_VALUES_H
#define TOOLS_DPDU_SCRIPT_VALUES_H

#include <set>
#include <string>
#include <vector>

#include "console/failure.h"
#include "script/script.h"
#include "script/words.h"

namespace dpdu::script {

enum class ValueKind {
    kBytes,       // hexadecimal bytes and variables
    kWithAnswer,  // also "TEXT" and parts of the answer
};

// All of these throw SyntaxError.
Value ParseValue(const std::vector<Word>& words, ValueKind kind);
Pattern ParsePattern(const std::vector<Word>& words);
PrintStep ParsePrint(const std::vector<Word>& words);

// True if the line begins as a request does: with a hexadecimal byte or a variable.
bool ParsesAsBytes(const std::string& line);

bool IsVariableName(const std::string& name);
bool NeedsAnswer(const Value& value);
// The bytes that are written out.
std::size_t KnownSize(const Value& value);
// The first variable of the step that is not one of these; empty: there is none.
std::string UnknownVariable(const Action& action, const std::set<std::string>& known);

// An answer is too short for the bytes that are asked of it.
class AnswerTooShort : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ValueTooLarge : public Failure {
public:
    using Failure::Failure;
};

// Throws AnswerTooShort, or ValueTooLarge for more than 1 MiB.
Bytes Evaluate(const Value& value, const Variables& variables, const Bytes& answer);
std::string PrintedText(const PrintStep& step, const Variables& variables);

bool Matches(const Pattern& pattern, const Variables& variables, const Bytes& bytes);
// "62 F1 90 ?? .."
std::string PatternText(const Pattern& pattern, const Variables& variables);

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_VALUES_H
