#include "script/runner.h"

#include <algorithm>
#include <utility>

#include "console/interruption.h"
#include "links/ecu_request.h"
#include "script/key_program.h"
#include "script/values.h"
#include "uds/answers.h"
#include "uds/services.h"

namespace dpdu::script {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kSecurityAccess = 0x27;
constexpr std::size_t kLevelBytes = 2;  // service and level, before the seed

const Bytes& FirstAnswer(const UnitAnswers& unit) {
    static const Bytes none;
    return unit.answers.empty() ? none : unit.answers.front().data;
}

std::optional<NegativeResponse> NegativeOf(const UnitAnswers& unit) {
    return unit.answers.empty() ? std::nullopt : ParseNegativeResponse(FirstAnswer(unit));
}

// True if the request asks the control unit not to answer positively.
bool SuppressesAnswer(const Bytes& request) {
    return request.size() > 1 && HasSubFunction(request[0]) &&
           (request[1] & kSuppressPositive) != 0;
}

std::string FrameText(const CanFrame& frame) {
    return FrameIdText(frame) + "#" + HexText(frame.data, " ");
}

bool Meets(const Alternative& alternative, const UnitAnswers& unit, const Variables& variables) {
    if (std::holds_alternative<NoAnswer>(alternative)) return unit.answers.empty();
    if (unit.answers.empty()) return false;
    const std::optional<NegativeResponse> negative = NegativeOf(unit);
    if (std::holds_alternative<PositiveAnswer>(alternative)) return !negative;
    if (const auto* wanted = std::get_if<NegativeAnswer>(&alternative)) {
        return negative && (!wanted->code || *wanted->code == negative->code);
    }
    return Matches(std::get<Pattern>(alternative), variables, FirstAnswer(unit));
}

std::string AlternativeText(const Alternative& alternative, const Variables& variables) {
    if (std::holds_alternative<NoAnswer>(alternative)) return "no answer";
    if (std::holds_alternative<PositiveAnswer>(alternative)) return "a positive answer";
    if (const auto* negative = std::get_if<NegativeAnswer>(&alternative)) {
        if (!negative->code) return "a negative response";
        return std::string("negative response ") + NegativeResponseName(*negative->code) + " (0x" +
               HexNumber(*negative->code, 2) + ")";
    }
    return PatternText(std::get<Pattern>(alternative), variables);
}

}  // namespace

Runner::Runner(ScriptLinks* links, const RunnerOptions& options, OnStep on_step)
    : links_(links),
      options_(options),
      on_step_(std::move(on_step)),
      variables_(options.variables),
      ecu_(options.ecu) {}

void Runner::Execute(const Step& step) {
    if (const auto* test = std::get_if<TestStep>(&step.action)) {
        for (const Step& inner : test->steps)
            Execute(inner);
        return;
    }
    if (const auto* repeat = std::get_if<RepeatStep>(&step.action)) {
        for (std::uint32_t i = 0; i < repeat->count; ++i) {
            for (const Step& inner : repeat->steps)
                Execute(inner);
        }
        return;
    }
    StepRecord record;
    record.line = step.line;
    record.kind = KindOf(step.action);
    record.text = step.text;
    const Clock::time_point start = Clock::now();
    const auto note_time = [&record, start] {
        record.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    };
    try {
        ThrowIfInterrupted();
        Dispatch(step, &record);
        links_->KeepFrames();
    } catch (const Failure& failure) {
        note_time();
        record.code = failure.Code();
        record.message = failure.what();
        if (const auto* unmet = dynamic_cast<const Unmet*>(&failure)) {
            record.expected = unmet->Expected();
            record.came = unmet->Came();
        }
        on_step_(record);
        throw;
    }
    note_time();
    on_step_(record);
}

void Runner::Dispatch(const Step& step, StepRecord* record) {
    const auto run = [this, record](const auto& action) {
        using Kind = std::decay_t<decltype(action)>;
        constexpr bool kIsBlock =
            std::is_same_v<Kind, RepeatStep> || std::is_same_v<Kind, TestStep>;
        if constexpr (!kIsBlock) Run(action, record);
    };
    try {
        std::visit(run, step.action);
    } catch (const UsageError& error) {  // of a ComParam's value
        throw Failure(error.what());
    }
}

void Runner::Ask(const LinkTargets& targets, const Bytes& request, StepRecord* record) {
    record->request = request;
    request_ = request;
    answers_.clear();
    silence_.clear();
    for (const EcuAddress& ecu : targets.ecus)
        answers_.push_back({ecu, {}});
    Exchange exchange;
    try {
        exchange = links_->To(targets).Request(request, ResponsesTo(request));
    } catch (const Failure& failure) {
        if (failure.Code() != ExitCode::kNoAnswer) throw;
        exchange.error = failure.what();
    }
    for (Answer& answer : exchange.answers) {
        // A library need not fill in the identifier on a physical link.
        const std::size_t unit = targets.functional_id ? answer.unique_id : 0;
        if (unit < answers_.size()) answers_[unit].answers.push_back(std::move(answer));
    }
    record->units = answers_;
    const bool is_anyone_silent =
        std::any_of(answers_.begin(), answers_.end(),
                    [](const UnitAnswers& unit) { return unit.answers.empty(); });
    if (!is_anyone_silent) return;
    if (exchange.answers.empty() && exchange.code != ExitCode::kNoAnswer) {
        throw Failure(exchange.error, exchange.code);
    }
    silence_ = exchange.answers.empty() ? exchange.error : "";
    // A dongle that was pulled out looks like a silent control unit.
    links_->RequireModule();
}

std::string Runner::CameText(const UnitAnswers& unit) const {
    if (unit.answers.empty())
        return silence_.empty() ? "no answer" : "no answer (" + silence_ + ")";
    const std::string bytes = HexText(FirstAnswer(unit), " ");
    const std::optional<NegativeResponse> negative = NegativeOf(unit);
    return negative ? bytes + " (" + NegativeResponseText(*negative) + ")" : bytes;
}

void Runner::RequirePositive(const UnitAnswers& unit) const {
    const bool may_be_silent = SuppressesAnswer(request_);
    if (unit.answers.empty() ? may_be_silent : !NegativeOf(unit)) return;
    const std::string from = answers_.size() > 1 ? " from " + EcuAddressText(unit.ecu) : "";
    throw Unmet((may_be_silent ? "no negative response" : "a positive answer") + from,
                CameText(unit),
                unit.answers.empty() ? ExitCode::kNoAnswer : ExitCode::kNegativeResponse);
}

void Runner::Run(const RequestStep& step, StepRecord* record) {
    Ask({{ecu_}, std::nullopt}, Evaluate(step.request, variables_, {}), record);
    if (!step.is_checked_later) RequirePositive(answers_.front());
}

void Runner::Run(const FunctionalStep& step, StepRecord* record) {
    const std::vector<EcuAddress> units = step.units.empty() ? std::vector{ecu_} : step.units;
    Ask({units, step.id}, Evaluate(step.request, variables_, {}), record);
    if (step.are_all_checked_later) return;
    for (const UnitAnswers& unit : answers_) {
        if (!step.checked_later.contains(unit.ecu.response_id)) RequirePositive(unit);
    }
}

void Runner::ExpectFrom(const ExpectStep& step, const UnitAnswers& unit) const {
    std::string expected;
    for (const Alternative& alternative : step.any_of) {
        if (Meets(alternative, unit, variables_)) return;
        expected += (expected.empty() ? "" : " or ") + AlternativeText(alternative, variables_);
    }
    if (answers_.size() > 1) expected += " from " + EcuAddressText(unit.ecu);
    throw Unmet(expected, CameText(unit), ExitCode::kUnmetExpectation);
}

void Runner::Run(const ExpectStep& step, StepRecord*) {
    bool is_known = false;
    for (const UnitAnswers& unit : answers_) {
        if (step.from && *step.from != unit.ecu.response_id) continue;
        is_known = true;
        ExpectFrom(step, unit);
    }
    if (!is_known) {
        throw Failure("the request was not for a control unit that answers on " +
                      CanIdText(step.from.value_or(0)));
    }
}

void Runner::Run(const WaitStep& step, StepRecord*) {
    const Clock::time_point end = Clock::now() + step.time;
    for (;;) {
        const auto left = end - Clock::now();
        if (left <= Clock::duration::zero()) return;
        links_->GetSession()->PauseForEvent(std::chrono::ceil<std::chrono::milliseconds>(left));
        ThrowIfInterrupted();
        links_->KeepFrames();
    }
}

void Runner::Run(const SeedKeyStep& step, StepRecord* record) {
    Ask({{ecu_}, std::nullopt}, {kSecurityAccess, step.level}, record);
    RequirePositive(answers_.front());
    const Bytes& answer = FirstAnswer(answers_.front());
    const Bytes seed(
        answer.begin() + static_cast<std::ptrdiff_t>(std::min(kLevelBytes, answer.size())),
        answer.end());
    // As a control unit answers that is unlocked already.
    if (std::all_of(seed.begin(), seed.end(), [](std::uint8_t byte) { return byte == 0; })) {
        record->printed = "already unlocked";
        return;
    }
    const Bytes key = KeyOf(seed, step.program, step.arguments, options_.key_limit);
    Bytes request = key;
    request.insert(request.begin(), static_cast<std::uint8_t>(step.level + 1));
    request.insert(request.begin(), kSecurityAccess);
    Ask({{ecu_}, std::nullopt}, request, record);
    RequirePositive(answers_.front());
}

void Runner::Run(const RawSendStep& step, StepRecord* record) {
    CanFrame frame = step.frame;
    frame.data = Evaluate(step.data, variables_, {});
    if (frame.data.size() > kLargestFrame) {
        throw Failure("a frame holds at most 8 bytes, these are " +
                      std::to_string(frame.data.size()));
    }
    links_->SendFrame(frame);
    record->printed = FrameText(frame);
}

void Runner::Run(const RawExpectStep& step, StepRecord* record) {
    const Clock::time_point end = Clock::now() + step.limit;
    std::string came = "no frame with this identifier";
    for (;;) {
        while (const std::optional<CanFrame> frame = links_->NextFrame()) {
            if (frame->id != step.frame.id || frame->is_29_bit != step.frame.is_29_bit) continue;
            came = FrameText(*frame);
            if (step.pattern && !Matches(*step.pattern, variables_, frame->data)) continue;
            record->printed = came;
            return;
        }
        const auto left = end - Clock::now();
        if (left <= Clock::duration::zero()) break;
        links_->GetSession()->PauseForEvent(std::chrono::ceil<std::chrono::milliseconds>(left));
        ThrowIfInterrupted();
    }
    links_->RequireModule();
    throw Unmet(FrameIdText(step.frame) + "#" +
                    (step.pattern ? PatternText(*step.pattern, variables_) : "..") + " within " +
                    std::to_string(step.limit.count()) + " ms",
                came, ExitCode::kUnmetExpectation);
}

void Runner::Run(const SetStep& step, StepRecord* record) {
    static const Bytes none;
    try {
        const Bytes& answer = answers_.empty() ? none : FirstAnswer(answers_.front());
        variables_[step.name] = Evaluate(step.value, variables_, answer);
    } catch (const AnswerTooShort& error) {
        throw Unmet("a longer answer",
                    answers_.empty() ? "none" : CameText(answers_.front()) + ": " + error.what(),
                    ExitCode::kUnmetExpectation);
    }
    record->printed = step.name + " = " + HexText(variables_[step.name], " ");
}

void Runner::Run(const PrintStep& step, StepRecord* record) {
    record->printed = PrintedText(step, variables_);
}

void Runner::Run(const EcuStep& step, StepRecord*) { ecu_ = step.ecu; }

void Runner::Run(const TimeoutStep& step, StepRecord*) { links_->SetLimit(step.limit); }

void Runner::Run(const ParamStep& step, StepRecord*) {
    links_->SetParam(step.name, step.value);
    // Opened at once, so that a wrong name or value is found on this line.
    links_->To({{ecu_}, std::nullopt});
}

void Runner::Run(const TesterPresentStep& step, StepRecord*) {
    links_->SetTesterPresent(step.period);
    if (step.period) links_->To({{ecu_}, std::nullopt}).StartCommunication();
}

}  // namespace dpdu::script
