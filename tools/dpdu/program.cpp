// dpdu: diagnostic requests through any D-PDU API library

#include "program.h"

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "check/library_answers.h"
#include "console/failure.h"
#include "console/terminal.h"
#include "options/command_line.h"

namespace dpdu {
namespace {

// With --json a failure is also a document.
ExitCode ReportFailure(const Failure& failure, Output* output) {
    ErrorLine(failure.what() + NextStep(failure.Code()));
    if (output->AsJson()) {
        output->Document(
            {{"error", OnOneLine(failure.what())}, {"exitCode", static_cast<int>(failure.Code())}});
        output->Flush();
    }
    return failure.Code();
}

ExitCode RunReporting(const Invocation& invocation, Output* output) {
    try {
        const ExitCode code = invocation.run(output);
        output->Flush();
        return code;
    } catch (const UsageError& error) {
        ErrorLine(error.what());
        return ExitCode::kUsage;
    } catch (const Failure& failure) {
        return ReportFailure(failure, output);
    }
}

ExitCode RunCommand(const Invocation& invocation, Output* output) {
    try {
        return RunReporting(invocation, output);
    } catch (const ReaderGone&) {
        return ExitCode::kReaderGone;
    }
}

ExitCode Main(int count, const char* const* arguments) {
    const Invocation invocation = ParseCommandLine(count, arguments);
    if (!invocation.error.empty()) {
        ErrorLine(invocation.error);
        return ExitCode::kUsage;
    }
    if (!invocation.run) {
        const bool printed = std::fputs(invocation.text.c_str(), stdout) >= 0;
        if (printed && std::fflush(stdout) == 0) return ExitCode::kOk;
        return MeansReaderGone(errno) ? ExitCode::kReaderGone : ExitCode::kFailure;
    }

    CatchInterruptions();
    std::FILE* answers = TakeStandardOutput(
        invocation.common.is_verbose ? LibraryLines::kToStandardError : LibraryLines::kDiscarded);
    if (!answers) {
        ErrorLine("there is no standard output to write to");
        return ExitCode::kFailure;
    }
    Output output(answers, invocation.common.as_json, ShowsEscapes(answers));
    const ExitCode exit_code = RunCommand(invocation, &output);
    const bool closed = std::fclose(answers) == 0;
    return closed || exit_code == ExitCode::kReaderGone ? exit_code : ExitCode::kFailure;
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
        return static_cast<int>(Main(static_cast<int>(texts.size()), texts.data()));
    } catch (const std::exception& error) {
        ErrorLine(error.what());
        return static_cast<int>(ExitCode::kFailure);
    }
}

}  // namespace dpdu
