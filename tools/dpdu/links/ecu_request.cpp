#include "links/ecu_request.h"

#include <nlohmann/json.hpp>
#include <optional>

#include "console/failure.h"
#include "console/interruption.h"
#include "console/progress.h"
#include "uds/answers.h"

namespace dpdu {
namespace {

constexpr char kNoAnswer[] = "no answer";

EcuReply AskOne(const ConnectedModule& module, const LinkOptions& options, const EcuAddress& ecu,
                const Bytes& request, const std::vector<ExpectedResponse>& expected) {
    const Progress progress("waiting for control unit " + EcuAddressText(ecu));
    EcuReply reply{ecu, {}, ""};
    Link link(module, options, {{ecu}, std::nullopt});
    Exchange exchange = link.Request(request, expected);
    reply.answers = std::move(exchange.answers);
    if (reply.answers.empty()) reply.error = exchange.error.empty() ? kNoAnswer : exchange.error;
    return reply;
}

// An answer that matches no entry of the table.
EcuReply UnknownSender(const Answer& answer) {
    const EcuAddress nobody{0, 0};
    return {nobody, {answer}, ""};
}

Json AnswerJson(const Answer& answer) {
    Json json = {{"data", HexText(answer.data)},
                 {"acceptanceId", answer.acceptance_id},
                 {"timestampUs", answer.timestamp_us}};
    if (answer.after_us) json["afterUs"] = *answer.after_us;
    if (const std::optional<NegativeResponse> negative = ParseNegativeResponse(answer.data)) {
        json["negativeResponse"] = {{"code", negative->code},
                                    {"name", NegativeResponseName(negative->code)}};
    }
    return json;
}

}  // namespace

std::vector<ExpectedResponse> ResponsesTo(const Bytes& request) {
    const std::uint8_t service = request.front();
    ExpectedResponse positive{
        false, {0xFF}, {static_cast<std::uint8_t>(service + kPositiveOffset)}};
    ExpectedResponse negative{true, {0xFF, 0xFF}, {kNegativeResponse, service}};
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
            replies.push_back({ecu, {}, failure.what()});
        }
    }
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
        replies.push_back({ecu, {}, ""});
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
        if (reply.answers.empty()) reply.error = is_alone ? exchange.error : kNoAnswer;
    }
    return replies;
}

std::string NegativeText(const EcuReply& reply) {
    if (reply.answers.empty()) return "";
    const std::optional<NegativeResponse> negative =
        ParseNegativeResponse(reply.answers.front().data);
    return negative ? NegativeResponseText(*negative) : "";
}

Json ReplyJson(const EcuReply& reply) {
    Json json = {{"requestId", CanIdText(reply.ecu.request_id)},
                 {"responseId", CanIdText(reply.ecu.response_id)}};
    Json answers = Json::array();
    for (const Answer& answer : reply.answers)
        answers.push_back(AnswerJson(answer));
    json["answers"] = answers;
    if (!reply.error.empty()) json["error"] = reply.error;
    return json;
}

std::size_t CountFailures(const std::vector<EcuReply>& replies) {
    std::size_t count = 0;
    for (const EcuReply& reply : replies) {
        if (reply.answers.empty() || !NegativeText(reply).empty()) ++count;
    }
    return count;
}

bool ReportFailures(std::size_t failed, std::size_t asked) {
    if (failed == 0) return true;
    ErrorLine(std::to_string(failed) + " of " + std::to_string(asked) +
              " control units did not do as asked");
    return false;
}

}  // namespace dpdu
