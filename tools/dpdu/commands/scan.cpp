#include "scan/scan.h"

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "uds/answers.h"

namespace dpdu {
namespace {

std::string UnitText(const FoundUnit& unit) {
    return (unit.request_id ? CanIdText(*unit.request_id) : "?") + ":" +
           CanIdText(unit.response_id);
}

std::string SessionText(const FoundUnit& unit) {
    if (!unit.session) return "-";
    if (unit.session->negative) return NegativeResponseName(unit.session->negative->code);
    if (!unit.session->p2_ms) return "yes";
    return "P2 " + std::to_string(*unit.session->p2_ms) + " ms, P2* " +
           std::to_string(unit.session->p2_star_ms.value_or(0)) + " ms";
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text.empty() ? "-" : text;
}

Row UnitRow(const FoundUnit& unit) {
    Row row = {UnitText(unit),
               unit.is_functional ? "yes" : "no",
               SessionText(unit),
               unit.active_session.empty() ? "-" : unit.active_session,
               Joined(unit.services),
               unit.trouble_code_count ? std::to_string(*unit.trouble_code_count) : "-"};
    if (!unit.problem.empty()) row.push_back(unit.problem);
    return row;
}

void PrintIdentifiers(const FoundUnit& unit, Output* output) {
    if (unit.identifiers.empty()) return;
    output->Line("");
    output->Line(UnitText(unit));
    std::vector<Row> rows;
    for (const DataRecord& record : unit.identifiers) {
        const std::string value =
            record.text.empty() ? HexText(record.data, " ") : "\"" + record.text + "\"";
        rows.push_back({"  " + HexNumber(record.identifier, 4), value});
        if (!record.name.empty()) rows.back().push_back(record.name);
    }
    output->Table(rows);
}

void Print(const ScanResult& result, Output* output) {
    if (result.units.empty()) return;
    std::vector<Row> rows = {
        {"UNIT", "FUNCTIONAL", "DEFAULT SESSION", "ACTIVE BEFORE", "SERVICES", "DTCS"}};
    for (const FoundUnit& unit : result.units)
        rows.push_back(UnitRow(unit));
    output->Table(rows);
    for (const FoundUnit& unit : result.units)
        PrintIdentifiers(unit, output);
}

Json UnitJson(const FoundUnit& unit) {
    Json json = {{"requestId", unit.request_id ? Json(CanIdText(*unit.request_id)) : Json()},
                 {"responseId", CanIdText(unit.response_id)},
                 {"functional", unit.is_functional},
                 {"services", unit.services}};
    if (unit.session) json["defaultSession"] = DecodedJson(*unit.session);
    if (!unit.active_session.empty()) json["activeSessionBefore"] = unit.active_session;
    if (unit.trouble_code_count) json["troubleCodeCount"] = *unit.trouble_code_count;
    Json identifiers = Json::array();
    for (const DataRecord& record : unit.identifiers)
        identifiers.push_back(RecordJson(record));
    json["identifiers"] = identifiers;
    if (!unit.problem.empty()) json["error"] = unit.problem;
    return json;
}

Json ResultJson(const ScanResult& result, ExitCode code) {
    Json units = Json::array();
    for (const FoundUnit& unit : result.units)
        units.push_back(UnitJson(unit));
    Json document = {{"method", result.method == ScanMethod::kRaw ? "raw" : "links"},
                     {"complete", result.end.empty()},
                     {"controlUnits", units}};
    if (!result.end.empty()) document["error"] = OnOneLine(result.end);
    document["exitCode"] = static_cast<int>(code);
    return document;
}

std::string CountText(std::size_t count) {
    if (count == 0) return "no control unit has answered";
    return std::to_string(count) + (count == 1 ? " control unit" : " control units") + " found";
}

}  // namespace

ExitCode RunScan(const CommonOptions& common, const ScanOptions& options, Output* output) {
    const ModuleSession module(common);
    ErrorLine(
        "the scan only reads: it sends 3E 00, 10 01 (default session), 22 and 19, nothing else");
    const ScanResult result = Scan(module.Module(), options);
    ExitCode code = result.code;
    if (result.end.empty() && result.units.empty()) code = ExitCode::kNoAnswer;
    if (output->AsJson()) {
        output->Document(ResultJson(result, code));
    } else {
        Print(result, output);
    }
    const std::string reason =
        result.end.empty() ? "" : result.end + "; the scan is not complete, ";
    ErrorLine(reason + CountText(result.units.size()) + NextStep(code));
    return code;
}

}  // namespace dpdu
