#include <cstdio>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "commands/run_prompt.h"
#include "commands/run_report.h"
#include "console/terminal.h"
#include "script/parser.h"
#include "script/runner.h"
#include "text/names.h"

namespace dpdu {
namespace {

constexpr char kStandardInput[] = "-";
constexpr std::size_t kLargestScript = 16 << 20;

std::string ReadAll(std::FILE* file, const std::string& name) {
    std::string text;
    char block[65536];
    for (std::size_t count; (count = std::fread(block, 1, sizeof block, file)) > 0;) {
        text.append(block, count);
        if (text.size() > kLargestScript) throw UsageError("'" + name + "' is longer than 16 MiB");
    }
    if (std::ferror(file)) throw UsageError("'" + name + "' cannot be read");
    return text;
}

std::string ReadScript(const std::string& file) {
    if (file == kStandardInput) return ReadAll(stdin, "standard input");
    std::FILE* stream = OpenFile(file, "rb");
    if (!stream) throw UsageError("the script '" + file + "' cannot be read");
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> closes(stream, std::fclose);
    return ReadAll(stream, file);
}

void RunSteps(const CommonOptions& common, const RunOptions& options, const script::Script& script,
              RunReport* report, script::Variables* variables) {
    const ModuleSession module(common);
    script::ScriptLinks links(module.Module(), options.link, RawLinkOptions(),
                              options.raw_primitive);
    script::Runner runner(&links, RunnerOptionsOf(options),
                          [report](const script::StepRecord& record) { report->OnStep(record); });
    try {
        for (const script::Step& step : script.steps) {
            report->BeginCase();
            runner.Execute(step);
            report->EndCase();
        }
        links.FinishSending();
    } catch (...) {
        *variables = runner.Values();
        throw;
    }
    *variables = runner.Values();
}

ExitCode CheckOnly(const script::Script& script, Output* output) {
    if (output->AsJson()) {
        output->JsonLine({{"script", script.name}, {"result", "checked"}, {"exitCode", 0}});
    } else {
        output->Line(script.name + ": no errors");
    }
    return ExitCode::kOk;
}

ExitCode RunFile(const CommonOptions& common, const RunOptions& options, const std::string& file,
                 Output* output) {
    const std::string name = file == kStandardInput ? "standard input" : file;
    const std::string text = ReadScript(file);
    RunReport report(output, name, options.junit, options.is_quiet);
    script::Variables variables = options.variables;
    try {
        const script::Script script = script::ParseScript(name, text, options.variables);
        if (options.only_checks) return CheckOnly(script, output);
        report.ListCases(script);
        RunSteps(common, options, script, &report, &variables);
    } catch (const UsageError& error) {
        report.RefuseSyntax(error.what());
    } catch (const ReaderGone&) {
        report.EndWithoutReader();
    } catch (const Failure& failure) {
        report.Fail(failure.Code(), failure.what());
    }
    return report.Finish(variables);
}

}  // namespace

ExitCode RunScript(const CommonOptions& common, const RunOptions& options, Output* output) {
    if (!options.file.empty()) return RunFile(common, options, options.file, output);
    const bool is_prompt = StandardInputIsTerminal() && StandardErrorIsTerminal();
    if (!is_prompt) return RunFile(common, options, kStandardInput, output);
    if (!options.junit.empty() || options.only_checks) {
        throw UsageError("--junit and --check need a script; see dpdu run --help");
    }
    return RunPrompt(common, options, output);
}

}  // namespace dpdu
