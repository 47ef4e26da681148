#include "ecu_request.h"

#include <optional>

#include "failure.h"
#include "output.h"
#include "progress.h"
#include "uds.h"

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

// An answer that belongs to no entry of the table.
EcuReply UnknownSender(const Answer& answer) {
    const EcuAddress nobody{0, 0};
    return {nobody, {answer}, ""};
}

}  // namespace

std::vector<ExpectedResponse> ResponsesTo(const Bytes& request) {
    const std::uint8_t service = request.front();
    ExpectedResponse positive{false, {0xFF}, {static_cast<std::uint8_t>(service + 0x40)}};
    ExpectedResponse negative{true, {0xFF, 0xFF}, {0x7F, service}};
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
        // With answers from others, an error of the whole request says nothing about this one.
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

bool ReportFailures(std::size_t failed, std::size_t asked) {
    if (failed == 0) return true;
    ErrorLine(std::to_string(failed) + " of " + std::to_string(asked) +
              " control units did not do as asked");
    return false;
}

}  // namespace dpdu
