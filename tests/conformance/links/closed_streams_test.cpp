// Hosts without standard streams.
#include "conformance/framework/closed_streams.h"

#include "conformance/framework/fresh_process.h"

namespace conformance {
namespace {

FRESH_PROCESS_TEST(StandardStreams, TakeNothingInADongleOnASerialPort) {
    UseDongleWithClosedStreams({.useSerial = true});
}

}  // namespace
}  // namespace conformance
