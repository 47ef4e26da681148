#pragma once

#include <cstdint>

#include "platform/thread.h"

namespace tarvik::test {

// While this object lives, starting a thread with this description fails with this system error.
class ThreadStartFault {
public:
    ThreadStartFault(const char* description, std::int32_t error);
    ~ThreadStartFault();
    ThreadStartFault(const ThreadStartFault&) = delete;
    ThreadStartFault& operator=(const ThreadStartFault&) = delete;
};

// While this object lives, threads are not terminated; the calls are recorded. A sanitizer does not
// survive every real termination.
class RecordedTermination {
public:
    RecordedTermination();
    ~RecordedTermination();
    RecordedTermination(const RecordedTermination&) = delete;
    RecordedTermination& operator=(const RecordedTermination&) = delete;

    static const OsThread* Last();  // null: none
};

}  // namespace tarvik::test
