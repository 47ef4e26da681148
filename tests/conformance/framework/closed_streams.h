#pragma once

// A host without standard input, output and error, on Linux.

#include "conformance/framework/settings.h"

namespace conformance {

// The body of a test: in a process of its own whose standard streams are closed, uses the dongle
// that the settings lead to, from loading the library to the end. Nothing that takes text comes in
// their place, and what the library prints is in no file.
void UseDongleWithClosedStreams(Settings (*settings)());

}  // namespace conformance
