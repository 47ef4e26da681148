// dpdu: diagnostic requests through any D-PDU API library

#include "program.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "check/library_answers.h"
#include "console/failure.h"
#include "console/terminal.h"
#include "options/command_line.h"

namespace dpdu {
namespace {

// With --json a failure is also a document.
int ReportFailure(const Failure& failure, Output* output) {
    ErrorLine(failure.what());
    if (output->AsJson()) {
        output->Document({{"error", OnOneLine(failure.what())}});
        output->Flush();
    }
    return kExitFailure;
}

int RunCommand(const Invocation& invocation, Output* output) {
    try {
        const bool went_well = invocation.run(output);
        output->Flush();
        return went_well ? kExitOk : kExitFailure;
    } catch (const UsageError& error) {
        ErrorLine(error.what());
        return kExitUsage;
    } catch (const Failure& failure) {
        return ReportFailure(failure, output);
    }
}

int Main(int count, const char* const* arguments) {
    const Invocation invocation = ParseCommandLine(count, arguments);
    if (!invocation.error.empty()) {
        ErrorLine(invocation.error);
        return kExitUsage;
    }
    if (!invocation.run) {
        const bool printed = std::fputs(invocation.text.c_str(), stdout) >= 0;
        return printed && std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
    }

    CatchInterruptions();
    std::FILE* answers = TakeStandardOutput(
        invocation.common.is_verbose ? LibraryLines::kToStandardError : LibraryLines::kDiscarded);
    if (!answers) {
        ErrorLine("there is no standard output to write to");
        return kExitFailure;
    }
    Output output(answers, invocation.common.as_json, ShowsEscapes(answers));
    const int exit_code = RunCommand(invocation, &output);
    return std::fclose(answers) == 0 ? exit_code : kExitFailure;
}

}  // namespace

int RunProgram(const std::vector<std::string>& arguments) {
    try {
        if (arguments.size() == 2 && arguments[1] == check::kAnswerArgument) {
            return check::AnswerQuestions();
        }
        std::vector<const char*> texts;
        for (const std::string& argument : arguments)
            texts.push_back(argument.c_str());
        return Main(static_cast<int>(texts.size()), texts.data());
    } catch (const std::exception& error) {
        ErrorLine(error.what());
        return kExitFailure;
    }
}

}  // namespace dpdu
