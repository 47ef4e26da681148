#include <nlohmann/json.hpp>
#include <optional>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "links/ecu_request.h"
#include "uds/trouble_codes.h"

namespace dpdu {
namespace {

struct Result {
    EcuAddress ecu;
    std::optional<TroubleCodeReport> report;
    std::string problem;  // why there is no report; empty: there is one
    ExitCode code = ExitCode::kOk;
};

Result ReadReport(const EcuReply& reply) {
    Result result{reply.ecu, std::nullopt, reply.error, Outcome(reply)};
    if (reply.answers.empty()) return result;
    const Bytes& answer = reply.answers.front().data;
    result.report = ParseTroubleCodeReport(answer);
    if (!result.report) {
        const std::string negative = NegativeText(reply);
        result.problem = negative.empty() ? "unexpected answer " + HexText(answer) : negative;
        if (negative.empty()) result.code = ExitCode::kFailure;
    }
    return result;
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : ", ") + text;
    return joined;
}

Json TroubleCodeJson(const TroubleCode& trouble) {
    return {{"code", TroubleCodeText(trouble.code)},
            {"raw", HexNumber(trouble.code, 6)},
            {"status", HexNumber(trouble.status, 2)},
            {"statusFlags", TroubleStatusFlags(trouble.status)}};
}

Json ResultJson(const Result& result) {
    Json json = {{"requestId", CanIdText(result.ecu.request_id)},
                 {"responseId", CanIdText(result.ecu.response_id)}};
    if (!result.report) {
        json["error"] = result.problem;
        return json;
    }
    json["statusAvailabilityMask"] = HexNumber(result.report->availability_mask, 2);
    Json codes = Json::array();
    for (const TroubleCode& trouble : result.report->codes) {
        codes.push_back(TroubleCodeJson(trouble));
    }
    json["troubleCodes"] = codes;
    return json;
}

void Print(const Result& result, Output* output) {
    const std::string ecu = EcuAddressText(result.ecu);
    if (!result.report) {
        ErrorLine(ecu + ": " + result.problem + NextStep(result.code));
        return;
    }
    const std::size_t count = result.report->codes.size();
    output->Line(ecu + ": " +
                 (count == 0 ? "no trouble codes"
                             : std::to_string(count) + " trouble code" + (count == 1 ? "" : "s")));
    std::vector<Row> rows;
    for (const TroubleCode& trouble : result.report->codes) {
        rows.push_back({"  " + TroubleCodeText(trouble.code), HexNumber(trouble.status, 2),
                        Joined(TroubleStatusFlags(trouble.status))});
    }
    output->Table(rows);
}

}  // namespace

ExitCode RunDtc(const CommonOptions& common, const DtcOptions& options, Output* output) {
    ModuleSession module(common);
    const Bytes request = TroubleCodeRequest(options.status_mask);
    Json list = Json::array();
    std::vector<ExitCode> outcomes;
    for (const EcuReply& reply :
         AskEach(module.Module(), options.link, options.ecus, request, ResponsesTo(request))) {
        const Result result = ReadReport(reply);
        outcomes.push_back(result.code);
        if (output->AsJson()) {
            list.push_back(ResultJson(result));
        } else {
            Print(result, output);
        }
    }
    if (output->AsJson()) output->Document({{"controlUnits", list}});
    if (!output->AsJson() && options.ecus.size() == 1) return outcomes.front();
    return ReportFailures(outcomes);
}

}  // namespace dpdu
