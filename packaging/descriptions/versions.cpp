#include "versions.h"

#include <cstdint>

#include "api/versions.h"

namespace tarvik::descriptions {

std::string ProductVersion() { return TARVIK_VERSION; }

std::string StandardVersion() {
    constexpr std::uint32_t kPacked = kStandardVersion;
    return std::to_string(kPacked >> 24) + "." + std::to_string(kPacked >> 16 & 0xFF) + "." +
           std::to_string(kPacked >> 8 & 0xFF);
}

}  // namespace tarvik::descriptions
