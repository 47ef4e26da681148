#pragma once

// A host without standard input, output and error, on Linux.

#include "conformance/framework/settings.h"

namespace conformance {

// Uses the dongle that these settings lead to, from loading the library to the end, in a process
// whose standard streams are closed. Nothing that takes text comes in their place, and what the
// library prints is in no file. For tests in a process of their own, before the library is loaded.
void UseDongleWithClosedStreams(Settings settings);

}  // namespace conformance
