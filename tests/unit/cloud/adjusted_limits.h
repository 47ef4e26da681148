#pragma once

#include "transport/cloud/cloud_limits.h"

namespace tarvik::test {

// What GetCloudLimits returns: the library's values, which a test changes for as long as this
// object lives. Change them before threads of the library run.
class AdjustedLimits {
public:
    AdjustedLimits();
    ~AdjustedLimits();
    AdjustedLimits(const AdjustedLimits&) = delete;
    AdjustedLimits& operator=(const AdjustedLimits&) = delete;

    CloudLimits* operator->() const;
};

}  // namespace tarvik::test
