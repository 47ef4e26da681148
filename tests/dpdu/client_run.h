// One run of the client program against a library, and what it left behind.

#ifndef TESTS_DPDU_CLIENT_RUN_H
#define TESTS_DPDU_CLIENT_RUN_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct ClientResult {
    int exit_code = -1;
    std::string output;               // standard output, line ends as \n
    std::string error;                // standard error, likewise, without the lines of progress
    std::string progress;             // these: on a busy machine a run may take its second
    std::vector<std::string> report;  // what the fake library wrote
};

struct ClientSetup {
    std::vector<std::string> arguments;
    std::string program;         // empty: the client as it was built
    std::string scenario;        // of the fake library
    std::string library;         // empty: the fake library, given by DPDU_LIBRARY
    bool has_library = true;     // false: DPDU_LIBRARY is not set at all
    std::string interrupt_when;  // interrupt the program when the report holds this line
};

ClientResult RunClient(const ClientSetup& setup);

// With the fake library in its ordinary state.
ClientResult RunClient(const std::vector<std::string>& arguments, const std::string& scenario = "");

// True when the report has the line.
bool Reported(const ClientResult& result, const std::string& line);

// True when the library was destructed with everything handed back and no rule broken.
bool ReleasedEverything(const ClientResult& result);

// What the program returns to the shell.
inline constexpr int kOk = 0;
inline constexpr int kFailure = 1;
inline constexpr int kUsage = 2;

using Json = nlohmann::json;

// Standard output as JSON; a test fails on anything beside the one document.
Json Document(const ClientResult& result);

// The same for output that is one document a line.
std::vector<Json> DocumentLines(const ClientResult& result);

bool Contains(const std::string& text, const std::string& part);

// One line that starts with the program's name.
bool IsOneErrorLine(const std::string& text);

// A new path in the folder for temporary files.
std::string TemporaryPath(const std::string& name);

std::string ReadWholeFile(const std::string& path);

#endif  // TESTS_DPDU_CLIENT_RUN_H
