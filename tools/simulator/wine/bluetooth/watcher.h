// Scanning.

#pragma once

#include <cstdint>
#include <string>

#include "wine/bluetooth/object.h"

namespace brennix {

Ref<IInspectable> MakeWatcher();

// To all watchers that scan.
void Advertised(std::uint64_t address, std::int32_t rssi, const std::string& name_hex);
// The radio does not scan any more.
void AbortWatchers();
// Waits until all is dealt with that the radio has sent so far, unless a watcher scans.
void AwaitRadio();

}  // namespace brennix
