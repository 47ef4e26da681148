#pragma once

#include <cstdint>

#include "platform/thread.h"

namespace tarvik {

// Restores the thread's last system error at the end of its scope: a caller may log between a
// system call and reading that call's error.
class KeepLastError {
public:
    KeepLastError() : error_(OsLastError()) {}
    ~KeepLastError() { OsSetLastError(error_); }
    KeepLastError(const KeepLastError&) = delete;
    KeepLastError& operator=(const KeepLastError&) = delete;

private:
    std::int32_t error_;
};

}  // namespace tarvik
