#pragma once

#include <cstdint>

namespace tarvik::test {

// While this object lives, starting a thread with this description fails with this system error.
class ThreadStartFault {
public:
    ThreadStartFault(const char* description, std::int32_t error);
    ~ThreadStartFault();
    ThreadStartFault(const ThreadStartFault&) = delete;
    ThreadStartFault& operator=(const ThreadStartFault&) = delete;
};

}  // namespace tarvik::test
