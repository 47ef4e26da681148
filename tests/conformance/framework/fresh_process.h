#pragma once

// Tests that need a process of their own: they change the environment, put files beside the
// library, unload it, or leave it in a state that would disturb later tests.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "conformance/framework/system.h"

namespace conformance {

struct ProgramRun {
    int exit_code;
    std::string output;  // standard output and error
};

// Runs one test of this program in a process of its own. Callable on any thread.
ProgramRun RunTestInFreshProcess(const std::string& test, const Variables& variables = {});

// Runs it in `count` processes at once. ProcessNumber returns the number of each, from 0.
std::vector<ProgramRun> RunTestInProcesses(const std::string& test, std::size_t count);
std::size_t ProcessNumber();

// "suite.test" of the running test.
std::string RunningTest();

// True in a process that was started for `test`.
bool IsProcessFor(const std::string& test);

}  // namespace conformance

// The body runs in a process of its own; its expectations count for this test.
#define FRESH_PROCESS_TEST(suite, name)                                        \
    static void suite##_##name##_Body();                                       \
    TEST(suite, name) {                                                        \
        if (conformance::IsProcessFor(#suite "." #name)) {                     \
            suite##_##name##_Body();                                           \
            return;                                                            \
        }                                                                      \
        const auto run = conformance::RunTestInFreshProcess(#suite "." #name); \
        EXPECT_EQ(run.exit_code, 0) << run.output;                             \
    }                                                                          \
    static void suite##_##name##_Body()
