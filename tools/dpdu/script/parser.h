// Parses scripts. docs/scripts.md has the grammar.

#ifndef TOOLS_DPDU_SCRIPT_PARSER_H
#define TOOLS_DPDU_SCRIPT_PARSER_H

#include <set>
#include <string>
#include <vector>

#include "script/script.h"
#include "script/words.h"

namespace dpdu::script {

// Takes a script line by line.
class Parser {
public:
    // `variables` have values before the script begins.
    explicit Parser(const Variables& variables);

    // Throws SyntaxError; the line then changes nothing.
    void Add(std::size_t number, std::string_view line);
    // True if a block is open.
    bool IsInside() const { return !blocks_.empty(); }
    // The steps so far. Throws SyntaxError if a block is open.
    std::vector<Step> Take();

    const std::set<std::string>& KnownVariables() const { return variables_; }

private:
    struct Block {
        Step step;  // its steps are in `steps` until the end of the block
        std::vector<Step> steps;
    };

    std::vector<Step>& Steps() { return blocks_.empty() ? steps_ : blocks_.back().steps; }
    void Begin(Step step);
    void End();
    void AddExpect(Step step);
    void AddStep(Step step);

    std::set<std::string> variables_;
    std::vector<Block> blocks_;
    std::vector<Step> steps_;
    bool was_asked_ = false;  // an earlier step has an answer
};

// Throws UsageError with file and line, "car.dpdu:3: ...", for a line that is refused.
Script ParseScript(const std::string& name, std::string_view text, const Variables& variables);

// "vin=57 54" or "vin=\"WTV\"", as in "set". Throws UsageError.
void ParseVariable(const std::string& text, Variables* variables);

// The first words of steps.
const std::vector<std::string>& StepNames();

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_PARSER_H
