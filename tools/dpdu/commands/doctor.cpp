#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/finding_text.h"
#include "console/failure.h"
#include "doctor/check.h"
#include "doctor/configuration.h"
#include "doctor/surroundings.h"
#include "pdu/functions.h"

namespace dpdu {
namespace {

// Files, then everything that answers over a port or a network. With the time that checks have to
// end, 15 seconds in all.
constexpr std::chrono::seconds kFileLimit{3};
constexpr std::chrono::seconds kSurroundingsLimit{10};

Finding LibraryFinding(const std::string& path) {
    try {
        LoadPduFunctions(path);
        return Found(Diagnosis::kLibrary, {{"path", path}});
    } catch (const Failure& failure) {
        return Found(Diagnosis::kLibraryUnusable, {{"reason", OnOneLine(failure.what())}});
    }
}

void Append(Examination* all, const Examination& more) {
    all->findings.insert(all->findings.end(), more.findings.begin(), more.findings.end());
    all->is_interrupted = all->is_interrupted || more.is_interrupted;
    all->is_hanging = all->is_hanging || more.is_hanging;
}

// `file` is written while the check runs, and read after it has ended in time.
Examination ExamineFiles(const std::string& library, const std::string& root_file,
                         const std::shared_ptr<ConfigFile>& file) {
    const auto check_library = [library](CheckRun* run) { run->Add(LibraryFinding(library)); };
    const auto check_root = [root_file, library](CheckRun* run) {
        run->Add(CheckRootEntry(root_file, library));
    };
    const auto check_configuration = [library, file](CheckRun* run) {
        const ConfigFile read = ReadConfigFile(library);
        run->Add(CheckConfiguration(read, library));
        run->Add(CheckPermissions(read));
        run->Add(CheckKeys(read));
        run->Add(CheckClock(library, read.path));
        if (!run->Stop()) *file = read;
    };
    return RunChecks({{"loading the library", Diagnosis::kCheckLate, check_library},
                      {"reading the root file", Diagnosis::kCheckLate, check_root},
                      {"reading the configuration", Diagnosis::kCheckLate, check_configuration}},
                     kFileLimit);
}

Examination ExamineSurroundings(const tarvik::Config& config) {
    const auto with = [config](void (*examine)(const tarvik::Config&, CheckRun*)) {
        return [config, examine](CheckRun* run) { examine(config, run); };
    };
    const auto check_log = [config](CheckRun* run) { run->Add(CheckLogFolder(config)); };
    return RunChecks(
        {{"looking at the serial ports", Diagnosis::kPortsLate, with(CheckPorts)},
         {"connecting to the relay", Diagnosis::kRelayLate, with(CheckRelay)},
         {"listening for dongles by Bluetooth", Diagnosis::kBluetoothLate, with(CheckBluetooth)},
         {"looking at the folder for log and trace", Diagnosis::kCheckLate, check_log}},
        kSurroundingsLimit);
}

Examination Examine(const std::string& library, const std::string& root_file) {
    const auto file = std::make_shared<ConfigFile>();
    Examination all = ExamineFiles(library, root_file, file);
    if (all.is_interrupted || all.is_hanging || !file->is_usable) return all;
    Append(&all, ExamineSurroundings(file->values));
    return all;
}

ExitCode CodeOf(const Examination& examination) {
    if (examination.is_interrupted) return ExitCode::kInterrupted;
    const std::string unusable = Found(Diagnosis::kLibraryUnusable).id;
    for (const Finding& finding : examination.findings) {
        if (finding.id == unusable) return ExitCode::kNoLibrary;
    }
    return SuccessIf(CountOf(Verdict::kWrong, examination.findings) == 0);
}

void Print(const Examination& examination, Output* output) {
    if (output->AsJson()) {
        output->Document({{"findings", DiagnosesJson(examination.findings)},
                          {"wrong", CountOf(Verdict::kWrong, examination.findings)},
                          {"notes", CountOf(Verdict::kNote, examination.findings)},
                          {"interrupted", examination.is_interrupted}});
    } else {
        PrintDiagnoses(examination.findings, output);
    }
    if (examination.is_interrupted) ErrorLine("interrupted: not everything was checked");
}

void List(Output* output) {
    Findings rows;
    for (const DiagnosisRow& row : Diagnoses()) {
        rows.push_back({.verdict = row.verdict,
                        .subject = row.subject,
                        .text = row.text,
                        .advice = row.next,
                        .id = row.id,
                        .why = row.why});
    }
    if (output->AsJson()) {
        output->Document({{"findings", DiagnosesJson(rows)}});
        return;
    }
    for (Finding& row : rows)
        row.subject = row.id;
    PrintDiagnoses(rows, output);
}

}  // namespace

ExitCode RunDoctor(const CommonOptions& common, const DoctorOptions& options, Output* output) {
    if (options.lists_diagnoses) {
        List(output);
        return ExitCode::kOk;
    }
    const Examination examination = Examine(common.LibraryPath(), common.root_file);
    Print(examination, output);
    const ExitCode code = CodeOf(examination);
    if (!examination.is_hanging) return code;
    // A check that hangs uses what an ordinary end would destroy.
    output->Flush();
    std::_Exit(static_cast<int>(code));
}

}  // namespace dpdu
