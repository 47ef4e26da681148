#include "script/words.h"

#include "xml/document.h"

namespace dpdu::script {
namespace {

constexpr char kQuote = '"';

bool IsBlank(char character) { return character == ' ' || character == '\t'; }

// `at` is after the opening quote, afterwards after the closing one.
Word QuotedWord(std::string_view text, std::size_t* at) {
    Word word{"", true};
    for (; *at < text.size(); ++*at) {
        if (text[*at] != kQuote) {
            word.text += text[*at];
            continue;
        }
        ++*at;
        if (*at == text.size() || IsBlank(text[*at])) return word;
        if (text[*at] != kQuote) {
            throw SyntaxError("a blank is missing after \"" + word.text +
                              "\"; a quote inside of quotes is written twice");
        }
        word.text += kQuote;
    }
    throw SyntaxError("the quote before '" + word.text + "' is not closed");
}

Word PlainWord(std::string_view text, std::size_t* at) {
    const std::size_t begin = *at;
    while (*at < text.size() && !IsBlank(text[*at]))
        ++*at;
    return {std::string(text.substr(begin, *at - begin)), false};
}

}  // namespace

std::vector<Word> SplitWords(std::string_view text) {
    std::vector<Word> words;
    for (std::size_t at = 0; at < text.size();) {
        if (IsBlank(text[at])) {
            ++at;
        } else if (text[at] == kQuote) {
            ++at;
            words.push_back(QuotedWord(text, &at));
        } else {
            words.push_back(PlainWord(text, &at));
        }
    }
    return words;
}

std::string WithoutComment(std::string_view line) {
    bool is_quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == kQuote) is_quoted = !is_quoted;
        const bool begins_word = i == 0 || IsBlank(line[i - 1]);
        if (line[i] != '#' || is_quoted || !begins_word) continue;
        line = line.substr(0, i);
        break;
    }
    return std::string(xml::Trimmed(line));
}

}  // namespace dpdu::script
