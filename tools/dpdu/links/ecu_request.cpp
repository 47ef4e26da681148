#include "links/ecu_request.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <utility>

#include "console/failure.h"
#include "console/interruption.h"
#include "console/progress.h"
#include "pdu/own_library.h"
#include "uds/answers.h"
#include "uds/decoding.h"

namespace dpdu {
namespace {

constexpr char kNoAnswer[] = "no answer";

void ExplainSilence(const Exchange& exchange, EcuReply* reply) {
    reply->error = exchange.error.empty() ? kNoAnswer : exchange.error;
    reply->code = exchange.code;
}

// A dongle that was pulled out looks like silent control units until the library is asked for it.
void NoticeLostModule(const ConnectedModule& module, std::vector<EcuReply>* replies) {
    const auto is_silent = [](const EcuReply& reply) {
        return reply.answers.empty() && reply.code == ExitCode::kNoAnswer;
    };
    if (std::none_of(replies->begin(), replies->end(), is_silent)) return;
    ListModules(module.GetSession());
    if (!IsModuleGone(module.GetSession(), module.Handle())) return;
    for (EcuReply& reply : *replies) {
        if (!is_silent(reply)) continue;
        reply.error = kModuleGone;
        reply.code = ExitCode::kModuleLost;
    }
}

EcuReply AskOne(const ConnectedModule& module, const LinkOptions& options, const EcuAddress& ecu,
                const Bytes& request, const std::vector<ExpectedResponse>& expected) {
    const Progress progress("waiting for control unit " + EcuAddressText(ecu));
    EcuReply reply;
    reply.ecu = ecu;
    Link link(module, options, {{ecu}, std::nullopt});
    Exchange exchange = link.Request(request, expected);
    reply.answers = std::move(exchange.answers);
    if (reply.answers.empty()) ExplainSilence(exchange, &reply);
    return reply;
}

// An answer that matches no entry of the table.
EcuReply UnknownSender(const Answer& answer) {
    const EcuAddress nobody{0, 0};
    return {nobody, {answer}, "", ExitCode::kOk, std::nullopt};
}

// Frames of a CAN bus cannot follow each other faster.
constexpr UNUM32 kShortestGapUs = 100;

// The dongle of this project's library sends all answers to a functional request in one packet, so
// that their time stamps are those of the delivery. Other libraries that do likewise show it by
// stamps that are too close to each other.
bool AreDeliveredTogether(const ConnectedModule& module, const std::vector<Answer>& answers) {
    if (IsOwnLibrary(module)) return true;
    for (std::size_t i = 1; i < answers.size(); ++i) {
        // The unsigned difference is correct across a wrap.
        if (answers[i].timestamp_us - answers[i - 1].timestamp_us >= kShortestGapUs) return false;
    }
    return answers.size() > 1;
}

void ReplaceTimes(std::vector<EcuReply>* replies) {
    for (EcuReply& reply : *replies) {
        for (Answer& answer : reply.answers)
            reply.all_after_us = std::exchange(answer.after_us, std::nullopt);
    }
}

Json AnswerJson(const Answer& answer, const Bytes& request) {
    Json json = {{"data", HexText(answer.data)},
                 {"acceptanceId", answer.acceptance_id},
                 {"timestampUs", answer.timestamp_us}};
    if (answer.after_us) json["afterUs"] = *answer.after_us;
    if (const std::optional<NegativeResponse> negative = ParseNegativeResponse(answer.data)) {
        json["negativeResponse"] = {{"code", negative->code},
                                    {"name", NegativeResponseName(negative->code)}};
    }
    json["decoded"] = DecodedJson(Decode(request, answer.data));
    return json;
}

}  // namespace

std::vector<ExpectedResponse> ResponsesTo(const Bytes& request) {
    const std::uint8_t service = request.front();
    ExpectedResponse positive{
        false, {0xFF}, {static_cast<std::uint8_t>(service + kPositiveOffset)}};
    ExpectedResponse negative{true, {0xFF, 0xFF}, {kNegativeResponseService, service}};
    return {std::move(positive), std::move(negative)};
}

std::vector<EcuReply> AskEach(const ConnectedModule& module, const LinkOptions& options,
                              const std::vector<EcuAddress>& ecus, const Bytes& request,
                              const std::vector<ExpectedResponse>& expected) {
    std::vector<EcuReply> replies;
    for (const EcuAddress& ecu : ecus) {
        try {
            replies.push_back(AskOne(module, options, ecu, request, expected));
        } catch (const Failure& failure) {
            ThrowIfInterrupted();
            replies.push_back({ecu, {}, failure.what(), failure.Code(), std::nullopt});
        }
    }
    NoticeLostModule(module, &replies);
    return replies;
}

std::vector<EcuReply> AskTogether(const ConnectedModule& module, const LinkOptions& options,
                                  const std::vector<EcuAddress>& ecus, std::uint32_t functional_id,
                                  const Bytes& request,
                                  const std::vector<ExpectedResponse>& expected) {
    const Progress progress("waiting for " + std::to_string(ecus.size()) + " control units");
    Link link(module, options, {ecus, functional_id});
    const Exchange exchange = link.Request(request, expected);

    std::vector<EcuReply> replies;
    replies.reserve(ecus.size());
    for (const EcuAddress& ecu : ecus)
        replies.push_back({ecu, {}, "", ExitCode::kNoAnswer, std::nullopt});
    for (const Answer& answer : exchange.answers) {
        if (answer.unique_id < ecus.size()) {
            replies[answer.unique_id].answers.push_back(answer);
        } else {
            replies.push_back(UnknownSender(answer));
        }
    }
    for (EcuReply& reply : replies) {
        // If others have answered, an error of the whole request says nothing about this unit.
        const bool is_alone = exchange.answers.empty() && !exchange.error.empty();
        if (reply.answers.empty()) ExplainSilence(is_alone ? exchange : Exchange{}, &reply);
    }
    // One control unit is asked physically.
    if (ecus.size() > 1 && AreDeliveredTogether(module, exchange.answers)) ReplaceTimes(&replies);
    NoticeLostModule(module, &replies);
    return replies;
}

std::string NegativeText(const EcuReply& reply) {
    if (reply.answers.empty()) return "";
    const std::optional<NegativeResponse> negative =
        ParseNegativeResponse(reply.answers.front().data);
    return negative ? NegativeResponseText(*negative) : "";
}

Json ReplyJson(const EcuReply& reply, const Bytes& request) {
    Json json = {{"requestId", CanIdText(reply.ecu.request_id)},
                 {"responseId", CanIdText(reply.ecu.response_id)}};
    Json answers = Json::array();
    for (const Answer& answer : reply.answers)
        answers.push_back(AnswerJson(answer, request));
    json["answers"] = answers;
    if (!reply.error.empty()) json["error"] = reply.error;
    return json;
}

ExitCode Outcome(const EcuReply& reply) {
    if (reply.answers.empty()) return reply.code;
    return NegativeText(reply).empty() ? ExitCode::kOk : ExitCode::kNegativeResponse;
}

std::vector<ExitCode> Outcomes(const std::vector<EcuReply>& replies) {
    std::vector<ExitCode> outcomes;
    for (const EcuReply& reply : replies)
        outcomes.push_back(Outcome(reply));
    return outcomes;
}

ExitCode MostSerious(const std::vector<ExitCode>& outcomes) {
    return std::accumulate(outcomes.begin(), outcomes.end(), ExitCode::kOk, MoreSerious);
}

ExitCode ReportFailures(const std::vector<ExitCode>& outcomes) {
    const ExitCode worst = MostSerious(outcomes);
    const auto good = std::count(outcomes.begin(), outcomes.end(), ExitCode::kOk);
    const auto asked = static_cast<std::ptrdiff_t>(outcomes.size());
    if (good < asked) {
        ErrorLine(std::to_string(asked - good) + " of " + std::to_string(asked) +
                  " control units did not do as asked" + NextStep(worst));
    }
    return worst;
}

}  // namespace dpdu
