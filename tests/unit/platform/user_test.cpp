#include "platform/user.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace tarvik {
namespace {

TEST(User, HasANameThatEndsWithANul) {
    char name[256];
    std::memset(name, '#', sizeof name);
    ASSERT_TRUE(OsUserName(name, sizeof name));
    EXPECT_GT(std::strlen(name), 0u);
    EXPECT_LT(std::strlen(name), sizeof name);
}

TEST(User, NameFitsIntoExactlyItsSize) {
    char name[256];
    ASSERT_TRUE(OsUserName(name, sizeof name));
    const auto size = static_cast<std::uint32_t>(std::strlen(name) + 1);
    char exact[256];
    EXPECT_TRUE(OsUserName(exact, size));
    EXPECT_STREQ(exact, name);
    EXPECT_FALSE(OsUserName(exact, size - 1));
}

}  // namespace
}  // namespace tarvik
