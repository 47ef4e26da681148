#include "commands/run_prompt.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands/module_session.h"
#include "commands/run_report.h"
#include "console/interruption.h"
#include "console/line_input.h"
#include "params/com_param_names.h"
#include "script/parser.h"

namespace dpdu {
namespace {

constexpr char kPrompt[] = "dpdu> ";
constexpr char kPromptInside[] = "....> ";

bool Ends(const Failure& failure) {
    return failure.Code() == ExitCode::kModuleLost || failure.Code() == ExitCode::kInterrupted;
}

// Words that may stand at the end of this text.
std::vector<std::string> Candidates(const std::string& before, const script::Parser& parser) {
    std::vector<std::string> candidates;
    const std::size_t blank = before.find_last_of(" \t");
    const std::string word = before.substr(blank == std::string::npos ? 0 : blank + 1);
    if (blank == std::string::npos) {
        candidates = script::StepNames();
    } else if (word.starts_with('$')) {
        for (const std::string& name : parser.KnownVariables())
            candidates.push_back("$" + name);
    } else if (before.starts_with("param ")) {
        for (const char* name : KnownComParamNames())
            candidates.push_back(std::string(name) + "=");
    } else if (before.starts_with("expect ")) {
        candidates = {"exactly", "from", "negative", "none", "positive"};
    } else if (before.starts_with("raw ")) {
        candidates = {"expect", "send"};
    } else if (before.starts_with("tester-present ")) {
        candidates = {"on", "off"};
    }
    std::erase_if(candidates,
                  [&word](const std::string& candidate) { return !candidate.starts_with(word); });
    return candidates;
}

void ShowFailure(const std::string& reason, Output* output) {
    ErrorLine(reason);
    if (output->AsJson()) {
        output->JsonLine({{"error", OnOneLine(reason)}});
        output->Flush();
    }
}

// Executes what is complete.
void ExecuteTyped(const std::vector<script::Step>& steps, script::Runner* runner) {
    try {
        for (const script::Step& step : steps)
            runner->Execute(step);
    } catch (const Failure& failure) {
        if (Ends(failure)) throw;
        ErrorLine(failure.what());  // with --json the step's document has it too
    }
}

}  // namespace

script::RunnerOptions RunnerOptionsOf(const RunOptions& options) {
    return {options.ecu, options.variables, options.key_limit};
}

ExitCode RunPrompt(const CommonOptions& common, const RunOptions& options, Output* output) {
    const ModuleSession module(common);
    script::ScriptLinks links(module.Module(), options.link, RawLinkOptions(),
                              options.raw_primitive);
    RunReport report(output, "", "", options.is_quiet);
    script::Runner runner(&links, RunnerOptionsOf(options),
                          [&report](const script::StepRecord& record) { report.OnStep(record); });
    script::Parser parser(options.variables);
    LineInput input([&parser](const std::string& before) { return Candidates(before, parser); });
    for (std::size_t number = 1;; ++number) {
        const std::optional<std::string> line =
            input.Read(parser.IsInside() ? kPromptInside : kPrompt);
        if (!line) WriteText(stderr, "\n");  // after the prompt
        ThrowIfInterrupted();
        if (!line) break;
        try {
            parser.Add(number, *line);
            if (!parser.IsInside()) ExecuteTyped(parser.Take(), &runner);
        } catch (const script::SyntaxError& error) {
            ShowFailure(error.what(), output);
        }
    }
    links.FinishSending();
    return ExitCode::kOk;
}

}  // namespace dpdu
