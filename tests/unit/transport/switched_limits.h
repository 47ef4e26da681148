#pragma once

#include "transport/serial/serial_limits.h"

// This file's source defines GetSerialLimits, which returns kPatientLimits or the limits of a test.
namespace tarvik::test {

// GetSerialLimits returns these while this object lives. They must outlive the library's threads.
class UseLimits {
public:
    explicit UseLimits(const SerialLimits& limits);
    ~UseLimits();
    UseLimits(const UseLimits&) = delete;
    UseLimits& operator=(const UseLimits&) = delete;
};

}  // namespace tarvik::test
