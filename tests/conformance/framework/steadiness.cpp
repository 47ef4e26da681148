#include "conformance/framework/steadiness.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "conformance/framework/rounds.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

std::string Growth(const char* name, std::uint64_t before, std::uint64_t after) {
    return std::string(name) + " " + std::to_string(before) + " -> " + std::to_string(after);
}

bool IsSteady(const ProcessFigures& before, const ProcessFigures& after,
              const Allowance& allowance) {
    return after.threads <= before.threads + allowance.threads &&
           after.handles <= before.handles + allowance.handles &&
           (!kMemoryTells || after.memory <= before.memory + allowance.memory);
}

}  // namespace

void ExpectSteady(const std::string& what, const ProcessFigures& before,
                  const ProcessFigures& after, const Allowance& allowance) {
    const std::string figures = what + ": " + Growth("threads", before.threads, after.threads) +
                                ", " + Growth("handles", before.handles, after.handles) + ", " +
                                Growth("memory", before.memory, after.memory);
    std::printf("%s\n", figures.c_str());
    EXPECT_TRUE(IsSteady(before, after, allowance)) << figures;
}

ProcessFigures MeasureSettled(const ProcessFigures& before, const Allowance& allowance) {
    ProcessFigures after;
    Eventually([&] {
        after = MeasureProcess();
        return IsSteady(before, after, allowance);
    });
    return after;
}

}  // namespace conformance
