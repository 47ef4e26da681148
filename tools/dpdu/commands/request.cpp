#include <nlohmann/json.hpp>
#include <optional>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "links/ecu_request.h"
#include "uds/decoding.h"

namespace dpdu {
namespace {

Json RequestJson(const RequestOptions& options, const std::vector<EcuReply>& replies) {
    Json document = {{"request", HexText(options.request)},
                     {"decodedRequest", DecodedJson(DecodeRequest(options.request))}};
    if (options.functional_id) document["functionalId"] = CanIdText(*options.functional_id);
    Json units = Json::array();
    for (const EcuReply& reply : replies)
        units.push_back(ReplyJson(reply, options.request));
    document["controlUnits"] = units;
    return document;
}

// One control unit: only the answer's bytes, for use in scripts; what they mean only for people. An
// explanation goes to standard error.
void PrintOne(const RequestOptions& options, const EcuReply& reply, Output* output) {
    const bool is_decoded = options.decode || output->IsLive();
    for (const Answer& answer : reply.answers) {
        output->Line(HexText(answer.data, " "));
        if (is_decoded) output->Line("  " + DescribeAnswer(options.request, answer.data));
    }
    const std::string problem = reply.answers.empty() ? reply.error : NegativeText(reply);
    if (!problem.empty()) {
        ErrorLine(EcuAddressText(reply.ecu) + ": " + problem + NextStep(Outcome(reply)));
    }
}

// Several control units: a row each, and a further row for every additional answer.
void PrintRows(const RequestOptions& options, const std::vector<EcuReply>& replies,
               Output* output) {
    std::vector<Row> rows;
    for (const EcuReply& reply : replies) {
        const std::string ecu = EcuAddressText(reply.ecu);
        if (reply.answers.empty()) rows.push_back({ecu, "-", reply.error});
        for (const Answer& answer : reply.answers) {
            rows.push_back(
                {ecu, HexText(answer.data, " "), DescribeAnswer(options.request, answer.data)});
        }
    }
    output->Table(rows);
}

}  // namespace

ExitCode RunRequest(const CommonOptions& common, const RequestOptions& options, Output* output) {
    ModuleSession module(common);
    const std::vector<ExpectedResponse> expected =
        options.expected.empty() ? ResponsesTo(options.request) : options.expected;
    const std::vector<EcuReply> replies =
        options.functional_id
            ? AskTogether(module.Module(), options.link, options.ecus, *options.functional_id,
                          options.request, expected)
            : AskEach(module.Module(), options.link, options.ecus, options.request, expected);

    const std::vector<ExitCode> outcomes = Outcomes(replies);
    if (output->AsJson()) {
        output->Document(RequestJson(options, replies));
    } else if (replies.size() == 1) {
        PrintOne(options, replies.front(), output);
        return outcomes.front();
    } else {
        PrintRows(options, replies, output);
    }
    return ReportFailures(outcomes);
}

}  // namespace dpdu
