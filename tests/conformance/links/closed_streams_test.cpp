// Hosts without standard streams.
#include "conformance/framework/closed_streams.h"

#include <gtest/gtest.h>

namespace conformance {
namespace {

TEST(StandardStreams, StayClosedWithADongleOnASerialPort) {
    UseDongleWithClosedStreams([] { return Settings{.useSerial = true}; });
}

}  // namespace
}  // namespace conformance
