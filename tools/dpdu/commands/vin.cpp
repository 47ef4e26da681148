#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "links/ecu_request.h"
#include "uds/answers.h"
#include "uds/vin.h"

namespace dpdu {
namespace {

const Bytes kReadVin = {0x22, 0xF1, 0x90};
constexpr std::size_t kIdentifierBytes = 2;  // after the service; repeated in the answer

struct Vin {
    EcuAddress ecu;
    std::string text;     // empty if there is no VIN
    std::string problem;  // also set if the text is not a well-formed VIN
    ExitCode code = ExitCode::kOk;
};

Vin ReadVin(const EcuReply& reply) {
    Vin vin{reply.ecu, "", reply.error, Outcome(reply)};
    if (reply.answers.empty()) return vin;
    const Bytes& answer = reply.answers.front().data;
    if (!IsPositiveAnswerTo(kReadVin, answer, kIdentifierBytes)) {
        const std::string negative = NegativeText(reply);
        vin.problem = negative.empty() ? "unexpected answer " + HexText(answer) : negative;
        if (negative.empty()) vin.code = ExitCode::kFailure;
        return vin;
    }
    vin.text = VinText(Bytes(answer.begin() + 1 + kIdentifierBytes, answer.end()));
    if (!IsWellFormedVin(vin.text)) {
        vin.problem = "not a well-formed VIN: '" + vin.text + "'";
        vin.code = ExitCode::kFailure;
    }
    return vin;
}

Json VinJson(const Vin& vin) {
    Json json = {{"requestId", CanIdText(vin.ecu.request_id)},
                 {"responseId", CanIdText(vin.ecu.response_id)},
                 {"vin", vin.text.empty() ? Json() : Json(vin.text)}};
    if (!vin.problem.empty()) json["error"] = vin.problem;
    return json;
}

void Print(const std::vector<Vin>& vins, Output* output) {
    if (vins.size() == 1) {
        const Vin& vin = vins.front();
        if (!vin.text.empty()) output->Line(vin.text);
        if (!vin.problem.empty()) {
            ErrorLine(EcuAddressText(vin.ecu) + ": " + vin.problem + NextStep(vin.code));
        }
        return;
    }
    std::vector<Row> rows;
    for (const Vin& vin : vins) {
        rows.push_back({EcuAddressText(vin.ecu), vin.text.empty() ? "-" : vin.text});
        if (!vin.problem.empty()) rows.back().push_back(vin.problem);
    }
    output->Table(rows);
}

}  // namespace

ExitCode RunVin(const CommonOptions& common, const VinOptions& options, Output* output) {
    ModuleSession module(common);
    std::vector<Vin> vins;
    std::vector<ExitCode> outcomes;
    for (const EcuReply& reply :
         AskEach(module.Module(), options.link, options.ecus, kReadVin, ResponsesTo(kReadVin))) {
        vins.push_back(ReadVin(reply));
        outcomes.push_back(vins.back().code);
    }

    if (output->AsJson()) {
        Json list = Json::array();
        for (const Vin& vin : vins)
            list.push_back(VinJson(vin));
        output->Document({{"controlUnits", list}});
    } else {
        Print(vins, output);
        if (vins.size() == 1) return outcomes.front();
    }
    return ReportFailures(outcomes);
}

}  // namespace dpdu
