#include "check/root_check.h"

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/finding_text.h"

namespace dpdu {
namespace {

std::chrono::milliseconds Milliseconds(double seconds) {
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

std::size_t CountOf(Verdict verdict, const check::RootReport& report) {
    std::size_t count = CountOf(verdict, report.findings);
    for (const check::EntryReport& entry : report.entries)
        count += CountOf(verdict, entry.findings);
    return count;
}

std::string Counted(std::size_t count, const std::string& one, const std::string& several) {
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

void Print(const check::RootReport& report, Output* output) {
    if (!report.file.empty()) output->Line(report.file);
    PrintFindings(report.findings, output);
    for (const check::EntryReport& entry : report.entries) {
        output->Line("");
        output->Line(OnOneLine(entry.name));
        PrintFindings(entry.findings, output);
    }
    const std::size_t wrong = CountOf(Verdict::kWrong, report);
    const std::size_t notes = CountOf(Verdict::kNote, report);
    output->Line("");
    output->Line(Counted(report.entries.size(), "library", "libraries") +
                 " checked: " + (wrong == 0 ? "nothing" : std::to_string(wrong)) + " wrong" +
                 (notes == 0 ? "" : ", " + Counted(notes, "note", "notes")));
}

Json DocumentOf(const check::RootReport& report) {
    Json libraries = Json::array();
    for (const check::EntryReport& entry : report.entries)
        libraries.push_back({{"name", entry.name}, {"findings", FindingsJson(entry.findings)}});
    return {{"rootFile", report.file},
            {"findings", FindingsJson(report.findings)},
            {"libraries", libraries},
            {"wrong", CountOf(Verdict::kWrong, report)},
            {"notes", CountOf(Verdict::kNote, report)}};
}

}  // namespace

ExitCode RunRootCheck(const CommonOptions& common, const RootOptions& options, Output* output) {
    const check::RootReport report = check::CheckRoot({.file = common.root_file,
                                                       .short_name = options.short_name,
                                                       .wait = common.Wait(),
                                                       .limit = Milliseconds(options.limit_seconds),
                                                       .is_verbose = common.is_verbose});
    if (output->AsJson()) {
        output->Document(DocumentOf(report));
    } else {
        Print(report, output);
    }
    return SuccessIf(CountOf(Verdict::kWrong, report) == 0);
}

}  // namespace dpdu
