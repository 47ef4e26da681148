#include <gtest/gtest.h>
#include <pthread.h>

#include "platform/thread.h"
#include "platform/thread_stack.h"

namespace tarvik {
namespace {

// While it lives, the application's threads have stacks of this size.
class DefaultStack {
public:
    explicit DefaultStack(std::size_t size) {
        ::pthread_getattr_default_np(&before_);
        pthread_attr_t attributes;
        ::pthread_getattr_default_np(&attributes);
        ::pthread_attr_setstacksize(&attributes, size);
        EXPECT_EQ(::pthread_setattr_default_np(&attributes), 0);
        ::pthread_attr_destroy(&attributes);
    }
    ~DefaultStack() {
        ::pthread_setattr_default_np(&before_);
        ::pthread_attr_destroy(&before_);
    }
    DefaultStack(const DefaultStack&) = delete;
    DefaultStack& operator=(const DefaultStack&) = delete;

private:
    pthread_attr_t before_;
};

void MeasureStack(void* size) {
    pthread_attr_t attributes;
    ::pthread_getattr_np(::pthread_self(), &attributes);
    ::pthread_attr_getstacksize(&attributes, static_cast<std::size_t*>(size));
    ::pthread_attr_destroy(&attributes);
}

std::size_t StackOfThread() {
    std::size_t size = 0;
    OsThread* thread = OsThreadStart(&MeasureStack, &size, "Tarvik test");
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    OsThreadClose(thread);
    return size;
}

TEST(ThreadStack, IsAMegabyteWhereTheApplicationsAreSmaller) {
    const DefaultStack small(128 << 10);
    EXPECT_GE(StackOfThread(), kMinThreadStack);
}

TEST(ThreadStack, IsThatOfTheApplicationsThreadsWhereTheyAreLarger) {
    constexpr std::size_t kLarge = 32 << 20;
    const DefaultStack large(kLarge);
    EXPECT_GE(StackOfThread(), kLarge);
}

}  // namespace
}  // namespace tarvik
