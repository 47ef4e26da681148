// Runs the client program with a library and returns its output.

#ifndef TESTS_DPDU_CLIENT_RUN_H
#define TESTS_DPDU_CLIENT_RUN_H

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

struct ClientResult {
    int exit_code = -1;
    std::string output;    // standard output, with \n as line end
    std::string error;     // standard error, likewise, without progress lines
    std::string progress;  // progress lines of standard error, which a busy machine may cause
    std::vector<std::string> report;  // lines written by the fake library
};

struct ClientSetup {
    std::vector<std::string> arguments;
    std::string program;      // empty: the client as built
    std::string input;        // its standard input
    std::string scenario;     // of the fake library
    std::string library;      // empty: the fake library, given by DPDU_LIBRARY
    bool has_library = true;  // false: DPDU_LIBRARY is not set at all
    bool is_released = true;  // false: the fake library ends before it is destructed
    bool has_reader = true;   // false: nobody reads standard output
    std::vector<std::pair<std::string, std::string>> environment;  // further variables
    std::string interrupt_when;             // interrupt the program when the report has this line
    std::function<bool()> interrupt_after;  // or when this returns true, which it must
};

// The test fails if the fake library was used and not destructed, if anything was not released, or
// if a rule was violated.
ClientResult RunClient(const ClientSetup& setup);

// With the fake library in its normal state, unless a scenario is given.
ClientResult RunClient(const std::vector<std::string>& arguments, const std::string& scenario = "");

// True if the report has the line.
bool Reported(const ClientResult& result, const std::string& line);

// Exit codes of the program.
inline constexpr int kOk = 0;
inline constexpr int kFailure = 1;
inline constexpr int kUsage = 2;
inline constexpr int kNoLibrary = 3;
inline constexpr int kNoModule = 4;
inline constexpr int kModuleLost = 5;
inline constexpr int kNegativeResponse = 6;
inline constexpr int kNoAnswer = 7;
inline constexpr int kUnmetExpectation = 8;
inline constexpr int kInterrupted = 130;
inline constexpr int kReaderGone = 141;

// The command succeeded with this on standard output and nothing on standard error.
void ExpectOutput(const ClientResult& result, const std::string& output);

// The command failed with this one line on standard error, here without its start "dpdu: " and
// without what to do next, which may follow after a semicolon.
void ExpectFailure(const ClientResult& result, const std::string& line, int exit_code = kFailure);

// The program refused each row of arguments after the command, with one line that contains
// `advice`, and did not use the library.
void ExpectMistakes(const std::vector<std::string>& command,
                    const std::vector<std::vector<std::string>>& rows,
                    const std::string& advice = "--help");

using Json = nlohmann::json;

// Standard output as JSON; the test fails if there is anything but one document.
Json Document(const ClientResult& result);

// As above, for output with one document per line.
std::vector<Json> DocumentLines(const ClientResult& result);

bool Contains(const std::string& text, const std::string& part);

// True for one line that starts with the program's name.
bool IsOneErrorLine(const std::string& text);

// A unique path in the folder for temporary files, with characters beyond every ANSI code page.
std::string TemporaryPath(const std::string& name);

// "dpdu trace COMMAND ...", for which the library is not loaded.
ClientResult RunTrace(const std::string& command, const std::vector<std::string>& arguments);

std::string ReadWholeFile(const std::string& path);
void RemoveFile(const std::string& path);

#endif  // TESTS_DPDU_CLIENT_RUN_H
