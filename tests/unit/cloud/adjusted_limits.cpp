// The library's source, with its function under another name.
#define GetCloudLimits LibraryCloudLimits
#include "transport/cloud/cloud_limits.cpp"
#undef GetCloudLimits

#include "unit/cloud/adjusted_limits.h"

namespace tarvik {
namespace {

CloudLimits limits_in_use = LibraryCloudLimits();

}  // namespace

const CloudLimits& GetCloudLimits();
const CloudLimits& GetCloudLimits() { return limits_in_use; }

namespace test {

AdjustedLimits::AdjustedLimits() { limits_in_use = LibraryCloudLimits(); }
AdjustedLimits::~AdjustedLimits() { limits_in_use = LibraryCloudLimits(); }
CloudLimits* AdjustedLimits::operator->() const { return &limits_in_use; }

}  // namespace test
}  // namespace tarvik
