#include "conformance/client_profile/score.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace conformance {
namespace {

int FailuresSoFar() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    return test->result()->total_part_count();  // passed expectations leave no part
}

}  // namespace

void Score::Step(const std::string& what, const std::function<void()>& body) {
    const int before = FailuresSoFar();
    body();
    const bool passed = FailuresSoFar() == before;
    if (passed) ++passed_;
    lines_.push_back((passed ? "passed  " : "FAILED  ") + what);
}

void Score::Print() const {
    for (const std::string& line : lines_)
        std::printf("%s\n", line.c_str());
    std::printf("client profile: %d of %d steps passed\n", passed_, Steps());
}

}  // namespace conformance
