#include "client_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "path_text.h"
#include "process.h"

namespace {

constexpr std::chrono::seconds kPatience{20};

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// The program reports that it has reached the wanted state by a line in a file.
bool WaitForLine(const std::string& path, const std::string& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
        const std::vector<std::string> lines = Lines(ReadWholeFile(path));
        if (std::find(lines.begin(), lines.end(), wanted) != lines.end()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

bool IsProgress(const std::string& line) {
    return line.starts_with("dpdu: ") && line.ends_with("...");
}

bool ReleasedEverything(const std::vector<std::string>& report) {
    const bool broke_a_rule =
        std::any_of(report.begin(), report.end(),
                    [](const std::string& line) { return line.starts_with("violation"); });
    return !broke_a_rule && report.back() == "destruct items=0 links=0 modules=0";
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += word + " ";
    return text;
}

// The program prints progress lines only if something takes longer than a second.
void TakeError(const std::string& text, ClientResult* result) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string* const part =
            IsProgress(text.substr(at, end - at)) ? &result->progress : &result->error;
        *part += text.substr(at, end - at + 1);
        at = end + 1;
    }
}

}  // namespace

namespace {

std::string UniquePath(const std::string& name) {
    static std::atomic<int> count{0};
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    return testing::TempDir() + "dpdu_" + std::to_string(OwnProcessId()) + "_" +
           std::to_string(now) + "_" + std::to_string(++count) + "_" + name;
}

}  // namespace

std::string TemporaryPath(const std::string& name) {
    return UniquePath(kForeignName + ("_" + name));
}

void RemoveFile(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove(PathOf(path), ignored);
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream file(PathOf(path), std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    std::string text = content.str();
    std::erase(text, '\r');
    return text;
}

ClientResult RunClient(const ClientSetup& setup) {
    const std::string output = setup.has_reader ? TemporaryPath("out") : "";
    const std::string error = TemporaryPath("err");
    const std::string input = setup.input.empty() ? "" : TemporaryPath("in");
    if (!input.empty()) std::ofstream(PathOf(input), std::ios::binary) << setup.input;
    const std::string report = UniquePath("report");  // the fake library knows no other names
    const std::string library = setup.library.empty() ? FAKE_LIBRARY : setup.library;

    std::vector<std::pair<std::string, std::string>> environment = {
        {"DPDU_LIBRARY", setup.has_library ? library : ""},
        {"FAKE_DPDU_SCENARIO", setup.scenario},
        {"FAKE_DPDU_REPORT", report}};
    environment.insert(environment.end(), setup.environment.begin(), setup.environment.end());
    const ProcessHandle process =
        StartProcess({setup.program.empty() ? DPDU_PROGRAM : setup.program, setup.arguments,
                      environment, output, error, input});
    ClientResult result;
    EXPECT_NE(process, 0) << "the program did not start: " << DPDU_PROGRAM;
    if (process == 0) return result;
    if (!setup.interrupt_when.empty()) {
        EXPECT_TRUE(WaitForLine(report, setup.interrupt_when)) << setup.interrupt_when;
        EXPECT_TRUE(InterruptProcess(process));
    }
    if (setup.interrupt_after) {
        EXPECT_TRUE(setup.interrupt_after());
        EXPECT_TRUE(InterruptProcess(process));
    }
    result.exit_code = WaitForProcess(process);
    if (setup.has_reader) result.output = ReadWholeFile(output);
    TakeError(ReadWholeFile(error), &result);
    result.report = Lines(ReadWholeFile(report));
    EXPECT_TRUE(!setup.is_released || result.report.empty() || ReleasedEverything(result.report))
        << Joined(setup.arguments) << ReadWholeFile(report);
    for (const std::string& path : {output, error, report, input}) {
        if (!path.empty()) RemoveFile(path);
    }
    return result;
}

ClientResult RunClient(const std::vector<std::string>& arguments, const std::string& scenario) {
    ClientSetup setup;
    setup.arguments = arguments;
    setup.scenario = scenario;
    return RunClient(setup);
}

bool Reported(const ClientResult& result, const std::string& line) {
    return std::find(result.report.begin(), result.report.end(), line) != result.report.end();
}

ClientResult RunTrace(const std::string& command, const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"trace", command};
    all.insert(all.end(), arguments.begin(), arguments.end());
    ClientResult result = RunClient(all);
    EXPECT_TRUE(result.report.empty()) << "the library was loaded";
    return result;
}

void ExpectOutput(const ClientResult& result, const std::string& output) {
    EXPECT_EQ(result.exit_code, kOk);
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.error, "");
}

void ExpectFailure(const ClientResult& result, const std::string& line, int exit_code) {
    EXPECT_EQ(result.exit_code, exit_code);
    EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
    const std::string start = "dpdu: " + line;
    EXPECT_EQ(result.error.substr(0, start.size()), start);
    const std::string rest = result.error.substr(std::min(start.size(), result.error.size()));
    EXPECT_TRUE(rest == "\n" || rest.starts_with("; ")) << result.error;
}

void ExpectMistakes(const std::vector<std::string>& command,
                    const std::vector<std::vector<std::string>>& rows, const std::string& advice) {
    for (const std::vector<std::string>& row : rows) {
        std::vector<std::string> arguments = command;
        arguments.insert(arguments.end(), row.begin(), row.end());
        SCOPED_TRACE(Joined(arguments));
        const ClientResult result = RunClient(arguments);
        EXPECT_EQ(result.exit_code, kUsage);
        EXPECT_EQ(result.output, "");
        EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
        EXPECT_TRUE(Contains(result.error, advice)) << result.error;
        EXPECT_TRUE(result.report.empty());
    }
}

Json Document(const ClientResult& result) {
    Json document = Json::parse(result.output, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << result.output;
    return document;
}

std::vector<Json> DocumentLines(const ClientResult& result) {
    std::vector<Json> documents;
    for (const std::string& line : Lines(result.output)) {
        documents.push_back(Json::parse(line, nullptr, false));
        EXPECT_FALSE(documents.back().is_discarded()) << line;
    }
    return documents;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool IsOneErrorLine(const std::string& text) {
    return text.starts_with("dpdu: ") && text.find('\n') == text.size() - 1;
}
