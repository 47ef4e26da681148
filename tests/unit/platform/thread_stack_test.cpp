#include "platform/thread_stack.h"

#include <gtest/gtest.h>

#include "platform/thread.h"
#include "unit/platform/application_stack.h"

namespace tarvik {
namespace {

using test::ApplicationStack;

std::size_t StackOfThread() {
    std::size_t size = 0;
    OsThread* thread = OsThreadStart(
        [](void* result) { *static_cast<std::size_t*>(result) = test::StackOfThisThread(); }, &size,
        "Tarvik test");
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    OsThreadClose(thread);
    return size;
}

TEST(ThreadStack, IsAMegabyteWhereTheApplicationsAreSmaller) {
    EXPECT_EQ(ThreadStackSize(256 << 10), kMinThreadStack);
    const ApplicationStack small(128 << 10);
    EXPECT_GE(StackOfThread(), kMinThreadStack);  // with Wine always
}

TEST(ThreadStack, IsThatOfTheApplicationsThreadsWhereTheyAreLarger) {
    constexpr std::size_t kLarge = 32 << 20;
    const ApplicationStack large(kLarge);
    EXPECT_GE(StackOfThread(), kLarge);
}

}  // namespace
}  // namespace tarvik
