#include "platform/random.h"

#include <gtest/gtest.h>

#include <set>

namespace tarvik {
namespace {

TEST(RandomNumber, DiffersEachTimeInEveryByte) {
    std::set<std::uint64_t> numbers;
    std::uint64_t changed = 0;
    const std::uint64_t first = OsRandomNumber();
    for (int i = 0; i < 100; ++i) {
        const std::uint64_t number = OsRandomNumber();
        numbers.insert(number);
        changed |= number ^ first;
    }
    EXPECT_EQ(numbers.size(), 100u);
    EXPECT_EQ(changed, ~std::uint64_t{0});
}

}  // namespace
}  // namespace tarvik
