// Compiled with the stack protector, as the library is.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "unit/test_system.h"

extern "C" std::uintptr_t __stack_chk_guard;

namespace tarvik {
namespace {

using test::ChildBody;
using test::RunChild;

std::string Guard() {
    char text[20];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(__stack_chk_guard));
    return text;
}

const ChildBody kPrintGuard("print-stack-guard", [] {
    std::printf("guard %s\n", Guard().c_str());
    return 0;
});

TEST(StackGuard, DiffersBetweenProcessesAndEndsTexts) {
    const std::string other = RunChild("print-stack-guard").output;
    EXPECT_NE(other.find("guard "), std::string::npos) << other;
    EXPECT_EQ(other.find("guard " + Guard()), std::string::npos) << other;
    EXPECT_EQ(__stack_chk_guard & 0xFF, 0u);
    EXPECT_NE(__stack_chk_guard, 0u);
}

__attribute__((noinline)) int Fill(std::size_t length) {
    volatile char text[16] = {};
    for (std::size_t i = 0; i < length; ++i)
        text[i] = 'x';
    return text[0];
}

const ChildBody kFill("fill-16-bytes", [] { return Fill(16) == 'x' ? 0 : 1; });
const ChildBody kOverflow("fill-32-bytes", [] { return Fill(32) == 'x' ? 0 : 1; });

TEST(StackGuard, EndsAProcessThatOverflowsABuffer) {
    EXPECT_EQ(RunChild("fill-16-bytes").exit_code, 0);
    constexpr std::uint32_t kStackBufferOverrun = 0xC0000409;
    EXPECT_EQ(static_cast<std::uint32_t>(RunChild("fill-32-bytes").exit_code), kStackBufferOverrun);
}

}  // namespace
}  // namespace tarvik
