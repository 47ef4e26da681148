#include "unit/platform/application_stack.h"

#include <pthread.h>

#include "unit/platform/thread_attribute_posix.h"

namespace tarvik::test {

struct ApplicationStack::Before {
    DefaultThreadAttribute attribute;
};

ApplicationStack::ApplicationStack(std::size_t size)
    : before_(new Before{{&::pthread_attr_setstacksize, size}}) {}

ApplicationStack::~ApplicationStack() = default;

std::size_t StackOfThisThread() {
    pthread_attr_t attributes;
    std::size_t size = 0;
    ::pthread_getattr_np(::pthread_self(), &attributes);
    ::pthread_attr_getstacksize(&attributes, &size);
    ::pthread_attr_destroy(&attributes);
    return size;
}

}  // namespace tarvik::test
