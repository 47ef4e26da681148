// Splits a line of a script into words.

#ifndef TOOLS_DPDU_SCRIPT_WORDS_H
#define TOOLS_DPDU_SCRIPT_WORDS_H

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace dpdu::script {

// Why a line is refused, without its number.
class SyntaxError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Word {
    std::string text;  // without the quotes
    bool is_quoted = false;
};

// Blanks separate words; "..." is one word, "" in it is one quote. Throws SyntaxError if a quote is
// not closed, or something follows it without a blank.
std::vector<Word> SplitWords(std::string_view text);

// The line without its comment, which begins with a # at the start or after a blank, and without
// blanks around it.
std::string WithoutComment(std::string_view line);

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_WORDS_H
