#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

namespace tarvik::test {

// While it lives, the application's threads are made with another value of an attribute.
class DefaultThreadAttribute {
public:
    template <typename Value>
    DefaultThreadAttribute(int (*set)(pthread_attr_t*, Value), Value value) {
        ::pthread_getattr_default_np(&before_);
        pthread_attr_t attributes;
        ::pthread_getattr_default_np(&attributes);
        set(&attributes, value);
        EXPECT_EQ(::pthread_setattr_default_np(&attributes), 0);
        ::pthread_attr_destroy(&attributes);
    }
    ~DefaultThreadAttribute() {
        ::pthread_setattr_default_np(&before_);
        ::pthread_attr_destroy(&before_);
    }
    DefaultThreadAttribute(const DefaultThreadAttribute&) = delete;
    DefaultThreadAttribute& operator=(const DefaultThreadAttribute&) = delete;

private:
    pthread_attr_t before_;
};

}  // namespace tarvik::test
