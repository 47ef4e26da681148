// The "raw" command of the control channel.

#pragma once

#include <string>
#include <string_view>

#include "dongle/dongle.h"

namespace brennix {

// `rest`: the words after "raw". Returns the text after "ok"; throws UsageError or JsonError.
std::string RunRawCommand(Dongle* dongle, std::string_view rest);

}  // namespace brennix
