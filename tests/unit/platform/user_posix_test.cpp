#include <errno.h>
#include <gtest/gtest.h>

#include "platform/user.h"
#include "unit/faults/system_call_fault.h"

namespace tarvik {
namespace {

bool HasNameWhile(int error) {
    char name[256];
    const test::SystemCallFault fault("getpwuid_r", error);
    return OsUserName(name, sizeof name);
}

TEST(UserName, IsUnknownIfTheUserIsNotInTheDatabase) { EXPECT_FALSE(HasNameWhile(0)); }

TEST(UserName, IsUnknownIfTheDatabaseCannotBeRead) { EXPECT_FALSE(HasNameWhile(EIO)); }

}  // namespace
}  // namespace tarvik
