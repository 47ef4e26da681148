#pragma once

#include <cstdint>

namespace tarvik {

// Dongles of other models are ignored.
inline bool IsSupportedModel(std::uint32_t model) {
    return model == 5 || model == 13 || model == 0x1000;
}

// Scans all transports, each on its own thread, and merges what they report into the module
// table. Blocks for the longest scan.
void UpdateModuleList();

}  // namespace tarvik
