#include "unit/transport/switched_limits.h"

#include <atomic>

#include "unit/transport/patient_limits.h"

namespace tarvik {
namespace {

std::atomic<const SerialLimits*> limits_in_use{&test::kPatientLimits};

}  // namespace

const SerialLimits& GetSerialLimits() { return *limits_in_use; }

namespace test {

UseLimits::UseLimits(const SerialLimits& limits) { limits_in_use = &limits; }

UseLimits::~UseLimits() { limits_in_use = &kPatientLimits; }

}  // namespace test
}  // namespace tarvik
