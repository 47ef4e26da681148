#include "commands/finding_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace dpdu {
namespace {

const char* VerdictText(Verdict verdict) {
    switch (verdict) {
        case Verdict::kFine:
            return "ok";
        case Verdict::kNote:
            return "note";
        case Verdict::kWrong:
            return "WRONG";
    }
    return "";
}

}  // namespace

void PrintFindings(const Findings& findings, Output* output) {
    std::vector<Row> rows;
    for (const Finding& finding : findings) {
        const std::string advice = finding.advice.empty() ? "" : " -> " + finding.advice;
        rows.push_back(
            {VerdictText(finding.verdict), finding.subject, OnOneLine(finding.text + advice)});
    }
    output->Table(rows);
}

Json FindingsJson(const Findings& findings) {
    Json list = Json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"state", VerdictText(finding.verdict)},
                        {"subject", finding.subject},
                        {"text", finding.text},
                        {"advice", finding.advice}});
    }
    return list;
}

void PrintDiagnoses(const Findings& findings, Output* output) {
    std::vector<Row> rows;
    for (const Finding& finding : findings) {
        rows.push_back({VerdictText(finding.verdict), finding.subject, OnOneLine(finding.text)});
        if (!finding.why.empty()) rows.push_back({"", "", "  " + OnOneLine(finding.why)});
        if (!finding.advice.empty()) rows.push_back({"", "", "  -> " + OnOneLine(finding.advice)});
    }
    output->Table(rows);
}

Json DiagnosesJson(const Findings& findings) {
    Json list = Json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"id", finding.id},
                        {"state", VerdictText(finding.verdict)},
                        {"subject", finding.subject},
                        {"what", finding.text},
                        {"why", finding.why},
                        {"next", finding.advice}});
    }
    return list;
}

std::size_t CountOf(Verdict verdict, const Findings& findings) {
    return static_cast<std::size_t>(std::ranges::count(findings, verdict, &Finding::verdict));
}

}  // namespace dpdu
