// Scanning.

#pragma once

#include <cstdint>
#include <string>

#include "wine/bluetooth/object.h"

namespace brennix {

Ref<IInspectable> MakeWatcher();

// Reports to all watchers that scan.
void Advertised(std::uint64_t address, std::int32_t rssi, const std::string& name_hex);
// The radio has stopped scanning.
void AbortWatchers();
// Waits until everything that the radio has sent so far is handled, unless a watcher scans.
void AwaitRadio();

}  // namespace brennix
