#include "script/values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

#include "console/failure.h"

namespace dpdu::script {
namespace {

constexpr char kAnyByte[] = "??";
constexpr char kAnything[] = "..";
constexpr char kAnswer[] = "answer";
// A loop may double a variable with each turn.
constexpr std::size_t kLargestValue = 1 << 20;

bool IsNameStart(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           character == '_';
}

bool IsNamePart(char character) {
    return IsNameStart(character) || (character >= '0' && character <= '9');
}

// "$vin" or "${vin}"
std::string VariableOf(const std::string& word) {
    const bool has_braces = word.starts_with("${") && word.ends_with('}');
    std::string name = has_braces ? word.substr(2, word.size() - 3) : word.substr(1);
    if (!IsVariableName(name)) throw SyntaxError("'" + word + "' is not a variable such as $vin");
    return name;
}

// Collects words in hexadecimal, which one call of ParseHex takes, between others.
class HexWords {
public:
    void Add(const std::string& word) { text_ += (text_.empty() ? "" : " ") + word; }

    // Appends the bytes so far to the parts.
    template <typename Parts>
    void Flush(Parts* parts) {
        if (text_.empty()) return;
        const std::optional<Bytes> bytes = ParseHex(text_);
        if (!bytes || bytes->empty()) {
            throw SyntaxError("'" + text_ + "' is not in one of the forms " + kHexForms);
        }
        parts->push_back(*bytes);
        text_.clear();
    }

private:
    std::string text_;
};

std::size_t ParseIndex(std::string_view text, const std::string& word) {
    std::size_t index = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, index);
    if (text.empty() || error != std::errc() || rest != end) {
        throw SyntaxError("'" + word +
                          "' is not a part such as answer[3], answer[3..] or answer[3..5]");
    }
    return index;
}

bool IsSlice(const Word& word) {
    return !word.is_quoted && (word.text == kAnswer || word.text.starts_with("answer["));
}

AnswerSlice ParseSlice(const std::string& word) {
    if (word == kAnswer) return {};
    std::string_view inside(word);
    inside.remove_prefix(sizeof "answer[" - 1);
    if (!inside.ends_with(']')) inside = {};  // refused below
    if (!inside.empty()) inside.remove_suffix(1);
    const std::size_t dots = inside.find("..");
    AnswerSlice slice;
    slice.first = ParseIndex(inside.substr(0, dots), word);
    if (dots == std::string_view::npos) {
        slice.last = slice.first;
    } else if (dots + 2 < inside.size()) {
        slice.last = ParseIndex(inside.substr(dots + 2), word);
        if (*slice.last < slice.first) throw SyntaxError("'" + word + "' ends before it begins");
    }
    return slice;
}

// "62F190..": the wildcards become words of their own.
std::vector<std::string> PatternWords(const std::vector<Word>& words) {
    std::vector<std::string> parts;
    for (const Word& word : words) {
        if (word.is_quoted) throw SyntaxError("'" + word.text + "' may not be in quotes here");
        bool is_new = true;
        for (std::size_t i = 0; i < word.text.size(); ++i) {
            const std::string two = word.text.substr(i, 2);
            if (two == kAnyByte || two == kAnything) {
                parts.push_back(two);
                ++i;
                is_new = true;
                continue;
            }
            if (is_new) parts.emplace_back();
            parts.back() += word.text[i];
            is_new = false;
        }
    }
    return parts;
}

Bytes SliceOf(const AnswerSlice& slice, const Bytes& answer) {
    const bool is_short = slice.last ? *slice.last >= answer.size() : slice.first > answer.size();
    if (is_short) {
        const std::size_t missing = slice.last ? *slice.last : slice.first;
        throw AnswerTooShort("the answer has " + std::to_string(answer.size()) +
                             " bytes, so there is no byte " + std::to_string(missing));
    }
    const std::size_t end = slice.last ? *slice.last + 1 : answer.size();
    return {answer.begin() + static_cast<std::ptrdiff_t>(slice.first),
            answer.begin() + static_cast<std::ptrdiff_t>(end)};
}

// One that a failed step did not set has none, as the steps of a prompt go on after a failure.
const Bytes& Lookup(const Variables& variables, const std::string& name) {
    const auto found = variables.find(name);
    if (found == variables.end()) throw Failure("$" + name + " has no value");
    return found->second;
}

// Every other byte is a dot.
std::string PrintableText(const Bytes& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '.';
    return text;
}

PrintedVariable ParsePrintedVariable(const std::string& text, std::size_t* at) {
    constexpr std::string_view kAsText = ":text";
    PrintedVariable variable;
    std::string name;
    if (text.compare(*at, 1, "{") == 0) {
        const std::size_t end = text.find('}', *at);
        if (end == std::string::npos) throw SyntaxError("'${' without '}'");
        name = text.substr(*at + 1, end - *at - 1);
        *at = end + 1;
        if (name.ends_with(kAsText)) {
            name.resize(name.size() - kAsText.size());
            variable.as_text = true;
        }
    } else {
        while (*at < text.size() && IsNamePart(text[*at]))
            name += text[(*at)++];
    }
    if (!IsVariableName(name)) {
        throw SyntaxError("'$" + name +
                          "' is not a variable such as $vin or ${vin:text}; $$ is a $");
    }
    variable.name = name;
    return variable;
}

// Calls `look` with the name of each variable.
template <typename Look>
struct VariableVisitor {
    Look look;

    void Visit(const Value& value) {
        for (const auto& part : value) {
            if (const auto* variable = std::get_if<VariableName>(&part)) look(variable->name);
        }
    }
    void Visit(const Pattern& pattern) {
        for (const auto& part : pattern.parts) {
            if (const auto* variable = std::get_if<VariableName>(&part)) look(variable->name);
        }
    }
    void operator()(const RequestStep& step) { Visit(step.request); }
    void operator()(const FunctionalStep& step) { Visit(step.request); }
    void operator()(const ExpectStep& step) {
        for (const Alternative& alternative : step.any_of) {
            if (const auto* pattern = std::get_if<Pattern>(&alternative)) Visit(*pattern);
        }
    }
    void operator()(const RawSendStep& step) { Visit(step.data); }
    void operator()(const RawExpectStep& step) {
        if (step.pattern) Visit(*step.pattern);
    }
    void operator()(const SetStep& step) { Visit(step.value); }
    void operator()(const PrintStep& step) {
        for (const auto& part : step.parts) {
            if (const auto* variable = std::get_if<PrintedVariable>(&part)) look(variable->name);
        }
    }
    template <typename Other>
    void operator()(const Other&) {}
};

}  // namespace

bool IsVariableName(const std::string& name) {
    return !name.empty() && IsNameStart(name.front()) &&
           std::all_of(name.begin(), name.end(), IsNamePart);
}

bool ParsesAsBytes(const std::string& line) {
    const std::string word = line.substr(0, line.find_first_of(" \t:"));
    if (word.empty()) return false;  // a colon before anything else
    if (word.starts_with('$')) return true;
    return std::isdigit(static_cast<unsigned char>(word.front())) != 0 ||
           std::all_of(word.begin(), word.end(),
                       [](unsigned char digit) { return std::isxdigit(digit) != 0; });
}

Value ParseValue(const std::vector<Word>& words, ValueKind kind) {
    Value value;
    HexWords hex;
    const bool takes_all = kind == ValueKind::kWithAnswer;
    for (const Word& word : words) {
        const bool is_variable = !word.is_quoted && word.text.starts_with('$');
        const bool is_hex = !is_variable && !word.is_quoted && !(takes_all && IsSlice(word));
        if (is_hex) {
            hex.Add(word.text);
            continue;
        }
        hex.Flush(&value);
        if (is_variable) {
            value.emplace_back(VariableName{VariableOf(word.text)});
        } else if (!takes_all) {
            throw SyntaxError("'" + word.text + "' may not be in quotes here");
        } else if (word.is_quoted) {
            value.emplace_back(Bytes(word.text.begin(), word.text.end()));
        } else {
            value.emplace_back(ParseSlice(word.text));
        }
    }
    hex.Flush(&value);
    if (value.empty()) {
        throw SyntaxError(std::string("bytes are missing; allowed: ") + kHexForms + ", and $NAME");
    }
    return value;
}

Pattern ParsePattern(const std::vector<Word>& words) {
    Pattern pattern;
    HexWords hex;
    for (const std::string& part : PatternWords(words)) {
        if (pattern.is_open) throw SyntaxError("'..' is at the end: anything further");
        if (part == kAnyByte) {
            hex.Flush(&pattern.parts);
            pattern.parts.emplace_back(AnyByte{});
        } else if (part == kAnything) {
            pattern.is_open = true;
        } else if (part.starts_with('$')) {
            hex.Flush(&pattern.parts);
            pattern.parts.emplace_back(VariableName{VariableOf(part)});
        } else {
            hex.Add(part);
        }
    }
    hex.Flush(&pattern.parts);
    if (pattern.parts.empty() && !pattern.is_open) {
        throw SyntaxError(
            "nothing is expected; allowed: bytes such as 62 F1 90 ??, exactly with bytes, none, "
            "positive, negative [CODE]");
    }
    return pattern;
}

PrintStep ParsePrint(const std::vector<Word>& words) {
    std::string text;
    for (const Word& word : words)
        text += (&word == words.data() ? "" : " ") + word.text;
    PrintStep step;
    std::string literal;
    for (std::size_t at = 0; at < text.size();) {
        const char character = text[at++];
        if (character != '$') {
            literal += character;
        } else if (at < text.size() && text[at] == '$') {
            literal += '$';
            ++at;
        } else {
            if (!literal.empty()) step.parts.emplace_back(std::exchange(literal, {}));
            step.parts.emplace_back(ParsePrintedVariable(text, &at));
        }
    }
    if (!literal.empty()) step.parts.emplace_back(literal);
    return step;
}

bool NeedsAnswer(const Value& value) {
    return std::any_of(value.begin(), value.end(),
                       [](const auto& part) { return std::holds_alternative<AnswerSlice>(part); });
}

std::size_t KnownSize(const Value& value) {
    std::size_t size = 0;
    for (const auto& part : value) {
        if (const auto* bytes = std::get_if<Bytes>(&part)) size += bytes->size();
    }
    return size;
}

std::string UnknownVariable(const Action& action, const std::set<std::string>& known) {
    std::string unknown;
    const auto look = [&known, &unknown](const std::string& name) {
        if (unknown.empty() && !known.contains(name)) unknown = name;
    };
    std::visit(VariableVisitor<decltype(look)>{look}, action);
    return unknown;
}

Bytes Evaluate(const Value& value, const Variables& variables, const Bytes& answer) {
    Bytes result;
    for (const auto& part : value) {
        Bytes bytes;
        if (const auto* constant = std::get_if<Bytes>(&part)) {
            bytes = *constant;
        } else if (const auto* variable = std::get_if<VariableName>(&part)) {
            bytes = Lookup(variables, variable->name);
        } else {
            bytes = SliceOf(std::get<AnswerSlice>(part), answer);
        }
        result.insert(result.end(), bytes.begin(), bytes.end());
        if (result.size() > kLargestValue) throw ValueTooLarge("a value has at most 1048576 bytes");
    }
    return result;
}

std::string PrintedText(const PrintStep& step, const Variables& variables) {
    std::string text;
    for (const auto& part : step.parts) {
        if (const auto* literal = std::get_if<std::string>(&part)) {
            text += *literal;
            continue;
        }
        const auto& variable = std::get<PrintedVariable>(part);
        const Bytes& value = Lookup(variables, variable.name);
        text += variable.as_text ? PrintableText(value) : HexText(value, " ");
    }
    return text;
}

bool Matches(const Pattern& pattern, const Variables& variables, const Bytes& bytes) {
    std::size_t at = 0;
    for (const auto& part : pattern.parts) {
        if (std::holds_alternative<AnyByte>(part)) {
            if (at++ == bytes.size()) return false;
            continue;
        }
        const auto* variable = std::get_if<VariableName>(&part);
        const Bytes& wanted = variable ? Lookup(variables, variable->name) : std::get<Bytes>(part);
        if (bytes.size() - at < wanted.size()) return false;
        if (!std::equal(wanted.begin(), wanted.end(),
                        bytes.begin() + static_cast<std::ptrdiff_t>(at)))
            return false;
        at += wanted.size();
    }
    return pattern.is_open || at == bytes.size();
}

std::string PatternText(const Pattern& pattern, const Variables& variables) {
    std::string text;
    const auto append = [&text](const std::string& part) {
        if (!part.empty()) text += (text.empty() ? "" : " ") + part;
    };
    for (const auto& part : pattern.parts) {
        if (std::holds_alternative<AnyByte>(part)) {
            append(kAnyByte);
        } else if (const auto* variable = std::get_if<VariableName>(&part)) {
            append(HexText(Lookup(variables, variable->name), " "));
        } else {
            append(HexText(std::get<Bytes>(part), " "));
        }
    }
    if (pattern.is_open) append(kAnything);
    return text.empty() ? "no bytes" : text;
}

}  // namespace dpdu::script
