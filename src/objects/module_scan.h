#pragma once

namespace tarvik {

// Scans all transports, each on its own thread, and merges what they report into the module
// table. Blocks for the longest scan.
void UpdateModuleList();

}  // namespace tarvik
