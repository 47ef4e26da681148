#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "console/failure.h"
#include "console/progress.h"
#include "doctor/configuration.h"
#include "doctor/surroundings.h"
#include "pdu/functions.h"

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

Finding LibraryFinding(const std::string& path) {
    try {
        LoadPduFunctions(path);
        return {Verdict::kFine, "library", path};
    } catch (const Failure& failure) {
        return {Verdict::kWrong, "library", OnOneLine(failure.what())};
    }
}

void AddAll(Findings* all, const Findings& more) {
    all->insert(all->end(), more.begin(), more.end());
}

Findings Examine(const std::string& library) {
    const Progress progress("looking at ports and relay");
    Findings findings = {LibraryFinding(library)};
    const ConfigFile file = ReadConfigFile(library);
    AddAll(&findings, CheckConfiguration(file, library));
    AddAll(&findings, CheckPermissions(file));
    AddAll(&findings, CheckKeys(file));
    if (file.is_usable) {
        AddAll(&findings, CheckPorts(file.values));
        AddAll(&findings, CheckRelay(file.values));
    }
    AddAll(&findings, CheckClock(library, file.path));
    return findings;
}

void PrintFindings(const Findings& findings, Output* output) {
    std::vector<Row> rows;
    for (const Finding& finding : findings) {
        const std::string advice = finding.advice.empty() ? "" : " -> " + finding.advice;
        rows.push_back({VerdictText(finding.verdict), finding.subject, finding.text + advice});
    }
    output->Table(rows);
}

void PrintFindingsJson(const Findings& findings, Output* output) {
    Json list = Json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"state", VerdictText(finding.verdict)},
                        {"subject", finding.subject},
                        {"text", finding.text},
                        {"advice", finding.advice}});
    }
    output->Document({{"findings", list}});
}

}  // namespace

bool RunDoctor(const CommonOptions& common, Output* output) {
    const Findings findings = Examine(common.LibraryPath());
    if (output->AsJson()) {
        PrintFindingsJson(findings, output);
    } else {
        PrintFindings(findings, output);
    }
    return std::none_of(findings.begin(), findings.end(),
                        [](const Finding& finding) { return finding.verdict == Verdict::kWrong; });
}

}  // namespace dpdu
