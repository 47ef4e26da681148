#include "script/parser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <utility>

#include "console/failure.h"
#include "script/values.h"
#include "uds/unit_list.h"
#include "xml/document.h"

namespace dpdu::script {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kLargestCount = 1'000'000;
constexpr std::chrono::milliseconds kLongest = 24h;
constexpr std::size_t kDeepest = 32;  // blocks inside of blocks
constexpr std::uint8_t kLargestLevel = 0x7D;

// The rest of a step's line, taken word by word.
class Words {
public:
    Words(std::vector<Word> words, const char* form) : words_(std::move(words)), form_(form) {}

    bool IsAtEnd() const { return at_ == words_.size(); }
    const Word& Next() {
        if (IsAtEnd()) Refuse("something is missing");
        return words_[at_++];
    }
    // Takes the next word if it is this one.
    bool Take(const char* word) {
        if (IsAtEnd() || words_[at_].is_quoted || words_[at_].text != word) return false;
        ++at_;
        return true;
    }
    // Those up to one of the names or the end.
    std::vector<Word> TakeUntil(std::initializer_list<const char*> names) {
        const auto begin = words_.begin() + static_cast<std::ptrdiff_t>(at_);
        const auto end = std::find_if(begin, words_.end(), [names](const Word& word) {
            return !word.is_quoted &&
                   std::any_of(names.begin(), names.end(),
                               [&word](const char* name) { return word.text == name; });
        });
        at_ = static_cast<std::size_t>(end - words_.begin());
        return {begin, end};
    }
    std::vector<Word> TakeRest() { return TakeUntil({}); }
    void RequireEnd() const {
        if (!IsAtEnd()) Refuse("'" + words_[at_].text + "' is too much");
    }
    [[noreturn]] void Refuse(const std::string& reason) const {
        throw SyntaxError(reason + "; allowed: " + form_);
    }

private:
    std::vector<Word> words_;
    const char* form_;
    std::size_t at_ = 0;
};

std::chrono::milliseconds ParseDuration(Words* words) {
    const std::string text = words->Next().text;
    double number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string_view unit(rest, static_cast<std::size_t>(end - rest));
    const double factor = unit == "ms" ? 1 : unit == "s" ? 1000 : 0;
    const double ms = std::round(number * factor);
    if (error != std::errc() || factor == 0 || !(ms >= 1) ||
        ms > static_cast<double>(kLongest.count())) {
        words->Refuse("'" + text + "' is not a time such as 100ms or 2.5s, from 1ms to 86400s");
    }
    return std::chrono::milliseconds(static_cast<std::int64_t>(ms));
}

std::uint32_t ParseCount(Words* words) {
    const std::string text = words->Next().text;
    std::uint32_t count = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc() || rest != end || count < 1 || count > kLargestCount) {
        words->Refuse("'" + text + "' is not a number from 1 to 1000000");
    }
    return count;
}

std::uint32_t ParseId(Words* words) {
    const std::string text = words->Next().text;
    const std::optional<std::uint32_t> id = ParseCanId(text);
    if (!id) words->Refuse("'" + text + "' is not a CAN identifier such as 7E8");
    return *id;
}

std::vector<EcuAddress> ParseUnitWords(Words* words) {
    std::vector<EcuAddress> addresses;
    std::set<std::uint32_t> responses;
    for (const Word& word : words->TakeUntil({"on", "units"})) {
        std::vector<NamedUnit> units;
        try {
            units = ParseUnits(word.text);
        } catch (const UsageError& error) {
            words->Refuse(error.what());
        }
        for (const NamedUnit& unit : units) {
            addresses.push_back(unit.address);
            if (responses.insert(unit.address.response_id).second) continue;
            words->Refuse("two control units answer on " + CanIdText(unit.address.response_id));
        }
    }
    if (addresses.empty()) words->Refuse("no control unit is named");
    return addresses;
}

RequestStep ParseRequestStep(const std::vector<Word>& words) {
    return {ParseValue(words, ValueKind::kBytes), false};
}

FunctionalStep ParseFunctional(Words* words) {
    FunctionalStep step;
    step.request = ParseValue(words->TakeUntil({"on", "units"}), ValueKind::kBytes);
    while (!words->IsAtEnd()) {
        if (words->Take("on")) {
            step.id = ParseId(words);
        } else if (words->Take("units")) {
            step.units = ParseUnitWords(words);
        } else {
            words->RequireEnd();
        }
    }
    return step;
}

NegativeAnswer ParseNegative(Words* words, const std::vector<Word>& rest) {
    if (rest.empty()) return {};
    const std::optional<Bytes> code = rest.size() == 1 ? ParseHex(rest[0].text) : std::nullopt;
    if (!code || code->size() != 1) words->Refuse("'negative' takes one code such as 31");
    return {code->front()};
}

Alternative ParseAlternative(Words* words) {
    if (words->Take("none")) return NoAnswer{};
    if (words->Take("positive")) return PositiveAnswer{};
    if (words->Take("negative")) return ParseNegative(words, words->TakeUntil({"or"}));
    // Control units append what a script need not know, such as times after a session's number.
    const bool is_exact = words->Take("exactly");
    Pattern pattern = ParsePattern(words->TakeUntil({"or"}));
    if (is_exact && pattern.is_open) words->Refuse("'exactly' and '..' contradict each other");
    pattern.is_open = !is_exact;
    return pattern;
}

ExpectStep ParseExpect(Words* words) {
    ExpectStep step;
    if (words->Take("from")) step.from = ParseId(words);
    do {
        step.any_of.push_back(ParseAlternative(words));
    } while (words->Take("or"));
    words->RequireEnd();
    return step;
}

WaitStep ParseWait(Words* words) { return {ParseDuration(words)}; }

// True for two hexadecimal digits.
bool IsLevel(const Word& word) {
    return !word.is_quoted && word.text.size() == 2 && ParseHex(word.text).has_value();
}

SeedKeyStep ParseSeedKey(Words* words) {
    SeedKeyStep step;
    Word word = words->Next();
    if (IsLevel(word)) {
        step.level = ParseHex(word.text)->front();
        if (step.level % 2 == 0 || step.level > kLargestLevel) {
            words->Refuse("a level is odd, from 01 to 7D");
        }
        word = words->Next();
    }
    if (word.text.empty()) words->Refuse("the program has no name");
    step.program = word.text;
    for (const Word& argument : words->TakeRest())
        step.arguments.push_back(argument.text);
    return step;
}

CanFrame ParseFrameId(const std::string& text, const Words& words) {
    const std::optional<std::uint32_t> id = ParseCanId(text);
    if (!id) words.Refuse("'" + text + "' is not a CAN identifier such as 7E0 or 18DA10F1");
    CanFrame frame;
    frame.id = *id;
    frame.is_29_bit = *id > kLargest11BitId || text.size() == 8;
    return frame;
}

// "7E0#0210" and further words: the identifier, and what follows the # as words.
CanFrame ParseFrame(Words* words, std::vector<Word>* data, bool* has_data) {
    const std::string head = words->Next().text;
    const std::size_t separator = head.find('#');
    *has_data = separator != std::string::npos;
    *data = words->TakeUntil({"within"});
    if (!*has_data && !data->empty()) words->Refuse("a # is missing after the identifier");
    if (*has_data && separator + 1 < head.size())
        data->insert(data->begin(), Word{head.substr(separator + 1), false});
    return ParseFrameId(head.substr(0, separator), *words);
}

RawSendStep ParseRawSend(Words* words) {
    RawSendStep step;
    std::vector<Word> data;
    bool has_data = false;
    step.frame = ParseFrame(words, &data, &has_data);
    if (!has_data) words->Refuse("a # is missing after the identifier");
    if (!data.empty()) step.data = ParseValue(data, ValueKind::kBytes);
    if (KnownSize(step.data) > kLargestFrame) words->Refuse("a frame holds at most 8 bytes");
    words->RequireEnd();
    return step;
}

RawExpectStep ParseRawExpect(Words* words) {
    RawExpectStep step;
    std::vector<Word> data;
    bool has_data = false;
    step.frame = ParseFrame(words, &data, &has_data);
    if (has_data) step.pattern = data.empty() ? Pattern{} : ParsePattern(data);
    if (words->Take("within")) step.limit = ParseDuration(words);
    words->RequireEnd();
    return step;
}

EcuStep ParseEcu(Words* words) {
    const std::string text = words->Next().text;
    try {
        const std::vector<NamedUnit> units = ParseUnits(text);
        if (units.size() == 1) return {units.front().address};
    } catch (const UsageError&) {
    }
    words->Refuse("'" + text + "' is not one control unit");
}

TimeoutStep ParseTimeout(Words* words) { return {ParseDuration(words)}; }

ParamStep ParseParam(Words* words) {
    std::string text;
    for (const Word& word : words->TakeRest())
        text += word.text;
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) words->Refuse("'" + text + "' has no value");
    return {text.substr(0, equals), text.substr(equals + 1)};
}

TesterPresentStep ParseTesterPresent(Words* words) {
    constexpr std::chrono::milliseconds kUsualPeriod = 2s;
    constexpr std::chrono::milliseconds kLongestPeriod = 4000s;  // its ComParam has microseconds
    if (words->Take("off")) return {};
    if (!words->Take("on")) words->Refuse("neither on nor off");
    const std::chrono::milliseconds period = words->IsAtEnd() ? kUsualPeriod : ParseDuration(words);
    if (period > kLongestPeriod) words->Refuse("a period is at most 4000s");
    return {period};
}

RepeatStep ParseRepeat(Words* words) { return {ParseCount(words), {}}; }

TestStep ParseTest(Words* words) {
    TestStep step;
    for (const Word& word : words->TakeRest())
        step.name += (step.name.empty() ? "" : " ") + word.text;
    if (step.name.empty()) words->Refuse("the test has no name");
    return step;
}

template <auto parse>
Action Parsed(Words* words) {
    Action action = parse(words);
    words->RequireEnd();
    return action;
}

struct StepRow {
    const char* name;  // one word or two
    const char* form;
    Action (*parse)(Words*);
};

constexpr StepRow kSteps[] = {
    {"expect",
     "expect [from ID] ALTERNATIVE [or ALTERNATIVE...], each one of bytes with ?? and .., none, "
     "positive, negative [CODE], exactly BYTES",
     Parsed<ParseExpect>},
    {"functional", "functional BYTES [on ID] [units UNITS...]", Parsed<ParseFunctional>},
    {"wait", "wait 100ms", Parsed<ParseWait>},
    {"seed-key", "seed-key [LEVEL] PROGRAM [ARGUMENT...]", Parsed<ParseSeedKey>},
    {"raw send", "raw send ID#BYTES", Parsed<ParseRawSend>},
    {"raw expect", "raw expect ID[#BYTES with ?? and ..] [within TIME]", Parsed<ParseRawExpect>},
    {"ecu", "ecu 7E0:7E8", Parsed<ParseEcu>},
    {"timeout", "timeout 2s", Parsed<ParseTimeout>},
    {"param", "param NAME=VALUE", Parsed<ParseParam>},
    {"tester-present", "tester-present on [TIME], tester-present off", Parsed<ParseTesterPresent>},
    {"repeat", "repeat NUMBER, further steps, end", Parsed<ParseRepeat>},
    {"test", "test NAME, further steps, end", Parsed<ParseTest>},
};

constexpr char kSetForm[] = "set NAME = BYTES, \"TEXT\", $NAME, answer or answer[FIRST..LAST]";

bool IsWord(std::string_view line, std::string_view word) {
    return line.starts_with(word) &&
           (line.size() == word.size() || line[word.size()] == ' ' || line[word.size()] == '\t');
}

// "raw  send": the rest of the line after a row's name; nullopt for another step.
std::optional<std::string_view> AfterName(std::string_view line, std::string_view name) {
    const std::size_t blank = name.find(' ');
    const std::string_view first = name.substr(0, blank);
    if (!IsWord(line, first)) return std::nullopt;
    line = xml::Trimmed(line.substr(first.size()));
    return blank == std::string_view::npos ? line : AfterName(line, name.substr(blank + 1));
}

SetStep ParseSet(std::string_view rest) {
    const std::size_t equals = rest.find('=');
    const std::string name(xml::Trimmed(rest.substr(0, equals)));
    if (equals == std::string_view::npos || !IsVariableName(name)) {
        throw SyntaxError("'" + name + "' is not a name followed by =; allowed: " + kSetForm);
    }
    const std::vector<Word> words = SplitWords(rest.substr(equals + 1));
    if (words.empty()) throw SyntaxError(std::string("the value is missing; allowed: ") + kSetForm);
    return {name, ParseValue(words, ValueKind::kWithAnswer)};
}

// True for steps that may be between a request and its expectations.
bool LeavesAnswer(const Action& action) {
    return std::holds_alternative<ExpectStep>(action) || std::holds_alternative<SetStep>(action) ||
           std::holds_alternative<PrintStep>(action);
}

void RequireUnit(const FunctionalStep& step, std::uint32_t response_id) {
    const bool is_asked = std::any_of(
        step.units.begin(), step.units.end(),
        [response_id](const EcuAddress& unit) { return unit.response_id == response_id; });
    // Without units it is for the control unit that is the current one then.
    if (is_asked || step.units.empty()) return;
    throw SyntaxError("the request is not for a control unit that answers on " +
                      CanIdText(response_id));
}

std::string AllNames() {
    std::string names;
    for (const std::string& name : StepNames())
        names += ", " + name;
    return names;
}

Action ParseAction(const std::string& line) {
    if (ParsesAsBytes(line)) return ParseRequestStep(SplitWords(line));
    if (IsWord(line, "set")) return ParseSet(std::string_view(line).substr(3));
    if (IsWord(line, "print")) return ParsePrint(SplitWords(std::string_view(line).substr(5)));
    for (const StepRow& row : kSteps) {
        const std::optional<std::string_view> rest = AfterName(line, row.name);
        if (!rest) continue;
        Words words(SplitWords(*rest), row.form);
        return row.parse(&words);
    }
    throw SyntaxError("'" + line.substr(0, line.find_first_of(" \t")) +
                      "' is not a step; allowed: a request such as 22 F1 90" + AllNames());
}

}  // namespace

const std::vector<std::string>& StepNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all = {"set", "print", "end"};
        for (const StepRow& row : kSteps)
            all.emplace_back(row.name);
        std::sort(all.begin(), all.end());
        return all;
    }();
    return names;
}

Parser::Parser(const Variables& variables) {
    for (const auto& [name, value] : variables)
        variables_.insert(name);
}

void Parser::Add(std::size_t number, std::string_view line) {
    Step step;
    step.line = number;
    step.text = WithoutComment(line);
    if (step.text.empty()) return;
    if (step.text == "end") return End();
    step.action = ParseAction(step.text);
    const std::string unknown = UnknownVariable(step.action, variables_);
    if (!unknown.empty()) {
        throw SyntaxError("$" + unknown +
                          " has no value yet; set it on an earlier line or with --var " + unknown +
                          "=BYTES");
    }
    if (std::holds_alternative<ExpectStep>(step.action)) return AddExpect(std::move(step));
    const bool is_block = std::holds_alternative<RepeatStep>(step.action) ||
                          std::holds_alternative<TestStep>(step.action);
    if (is_block) return Begin(std::move(step));
    AddStep(std::move(step));
}

void Parser::AddStep(Step step) {
    if (const auto* set = std::get_if<SetStep>(&step.action)) {
        if (NeedsAnswer(set->value) && !was_asked_) {
            throw SyntaxError("there is no answer yet; a request comes first");
        }
        variables_.insert(set->name);
    }
    const bool asks = std::holds_alternative<RequestStep>(step.action) ||
                      std::holds_alternative<FunctionalStep>(step.action) ||
                      std::holds_alternative<SeedKeyStep>(step.action);
    was_asked_ = was_asked_ || asks;
    Steps().push_back(std::move(step));
}

void Parser::Begin(Step step) {
    if (std::holds_alternative<TestStep>(step.action) && IsInside()) {
        throw SyntaxError("a test is not inside of another block; 'end' ends that of line " +
                          std::to_string(blocks_.back().step.line));
    }
    if (blocks_.size() == kDeepest) throw SyntaxError("more than 32 blocks inside of each other");
    blocks_.push_back({std::move(step), {}});
}

void Parser::End() {
    if (!IsInside()) throw SyntaxError("'end' without a block; repeat and test begin one");
    Block block = std::move(blocks_.back());
    if (block.steps.empty()) throw SyntaxError("the block has no steps");
    blocks_.pop_back();
    if (auto* repeat = std::get_if<RepeatStep>(&block.step.action)) {
        repeat->steps = std::move(block.steps);
    } else {
        std::get<TestStep>(block.step.action).steps = std::move(block.steps);
    }
    Steps().push_back(std::move(block.step));
}

void Parser::AddExpect(Step step) {
    std::vector<Step>& steps = Steps();
    const auto last = std::find_if(steps.rbegin(), steps.rend(), [](const Step& earlier) {
        return !LeavesAnswer(earlier.action);
    });
    const std::optional<std::uint32_t> from = std::get<ExpectStep>(step.action).from;
    // Steps that were taken before have been executed, so their answer is there.
    if (last == steps.rend()) {
        if (IsInside() || !was_asked_) {
            throw SyntaxError("'expect' is on the lines after a request, in the same block");
        }
    } else if (auto* request = std::get_if<RequestStep>(&last->action)) {
        if (from) throw SyntaxError("'from' is for functional requests");
        request->is_checked_later = true;
    } else if (auto* functional = std::get_if<FunctionalStep>(&last->action)) {
        if (from) {
            RequireUnit(*functional, *from);
            functional->checked_later.insert(*from);
        } else {
            functional->are_all_checked_later = true;
        }
    } else {
        throw SyntaxError("'expect' is on the lines after a request, not after '" +
                          std::string(KindOf(last->action)) + "'");
    }
    steps.push_back(std::move(step));
}

std::vector<Step> Parser::Take() {
    if (IsInside()) {
        throw SyntaxError("the block of line " + std::to_string(blocks_.front().step.line) +
                          " has no end");
    }
    return std::exchange(steps_, {});
}

Script ParseScript(const std::string& name, std::string_view text, const Variables& variables) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    Parser parser(variables);
    std::size_t number = 0;
    try {
        while (!text.empty()) {
            ++number;
            const std::size_t end = std::min(text.find('\n'), text.size());
            std::string_view line = text.substr(0, end);
            text.remove_prefix(std::min(end + 1, text.size()));
            if (line.ends_with('\r')) line.remove_suffix(1);
            parser.Add(number, line);
        }
        return {name, parser.Take()};
    } catch (const SyntaxError& error) {
        throw UsageError(name + ":" + std::to_string(number) + ": " + error.what());
    }
}

void ParseVariable(const std::string& text, Variables* variables) {
    try {
        SetStep step = ParseSet(text);
        const std::string unknown = UnknownVariable(step, {});
        const bool is_constant = unknown.empty() && !NeedsAnswer(step.value);
        if (!is_constant) throw SyntaxError("allowed: BYTES or \"TEXT\"");
        (*variables)[step.name] = Evaluate(step.value, {}, {});
    } catch (const SyntaxError& error) {
        throw UsageError("--var " + text + ": " + error.what());
    }
}

}  // namespace dpdu::script
