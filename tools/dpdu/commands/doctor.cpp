#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/finding_text.h"
#include "console/failure.h"
#include "console/progress.h"
#include "doctor/configuration.h"
#include "doctor/surroundings.h"
#include "pdu/functions.h"

namespace dpdu {
namespace {

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

}  // namespace

ExitCode RunDoctor(const CommonOptions& common, Output* output) {
    const Findings findings = Examine(common.LibraryPath());
    if (output->AsJson()) {
        output->Document({{"findings", FindingsJson(findings)}});
    } else {
        PrintFindings(findings, output);
    }
    return SuccessIf(CountOf(Verdict::kWrong, findings) == 0);
}

}  // namespace dpdu
