#include "conformance/framework/fresh_process.h"

#include <atomic>
#include <cstdlib>
#include <memory>

#include "conformance/framework/surroundings.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr char kProcessFor[] = "TARVIK_TEST_PROCESS_FOR";
constexpr char kProcessNumber[] = "TARVIK_TEST_PROCESS_NUMBER";

}  // namespace

bool IsProcessFor(const std::string& test) {
    const char* value = std::getenv(kProcessFor);
    return value != nullptr && test == value;
}

ProgramRun RunTestInFreshProcess(const std::string& test, const Variables& variables) {
    static std::atomic<int> runs{0};
    Variables all = variables;
    all.emplace_back(kProcessFor, test);
    all.emplace_back("GTEST_OUTPUT", "");   // the results file belongs to this process
    all.emplace_back("GTEST_REPEAT", "1");  // a repetition would not be fresh
    const std::string file = JoinPath(PrivateFolder(), "output" + std::to_string(++runs) + ".txt");
    const int code = RunProgramAgain({"--gtest_filter=" + test}, all, file);
    return {code, ReadFile(file)};
}

std::vector<ProgramRun> RunTestInProcesses(const std::string& test, std::size_t count) {
    std::vector<ProgramRun> runs(count);
    std::vector<std::unique_ptr<Thread>> threads;
    for (std::size_t i = 0; i < count; ++i) {
        threads.push_back(std::make_unique<Thread>([&run = runs[i], &test, i] {
            run = RunTestInFreshProcess(test, {{kProcessNumber, std::to_string(i)}});
        }));
    }
    threads.clear();  // joins them
    return runs;
}

std::size_t ProcessNumber() {
    const char* value = std::getenv(kProcessNumber);
    return value == nullptr ? 0 : std::strtoul(value, nullptr, 10);
}

std::string RunningTest() {
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    return std::string(test.test_suite_name()) + "." + test.name();
}

}  // namespace conformance
