#include "conformance/framework/fresh_process.h"

#include <atomic>
#include <cstdlib>

#include "conformance/framework/surroundings.h"

namespace conformance {

static constexpr char kProcessFor[] = "TARVIK_TEST_PROCESS_FOR";

bool IsProcessFor(const std::string& test) {
    const char* value = std::getenv(kProcessFor);
    return value != nullptr && test == value;
}

ProgramRun RunTestInFreshProcess(const std::string& test, const Variables& variables) {
    static std::atomic<int> runs{0};
    Variables all = variables;
    all.emplace_back(kProcessFor, test);
    all.emplace_back("GTEST_OUTPUT", "");  // the results file is this process's
    const std::string file = JoinPath(PrivateFolder(), "output" + std::to_string(++runs) + ".txt");
    const int code = RunProgramAgain({"--gtest_filter=" + test}, all, file);
    return {code, ReadFile(file)};
}

}  // namespace conformance
