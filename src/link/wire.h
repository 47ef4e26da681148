#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tarvik {

// Borrowed bytes: valid as long as what they are part of.
struct ByteView {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
};

// Little-endian, as is every system this library runs on. `from` and `to` need not be aligned.
inline std::uint16_t LoadU16(const std::uint8_t* from) {
    std::uint16_t value;
    std::memcpy(&value, from, sizeof value);
    return value;
}
inline std::uint32_t LoadU32(const std::uint8_t* from) {
    std::uint32_t value;
    std::memcpy(&value, from, sizeof value);
    return value;
}
inline void StoreU16(std::uint8_t* to, std::uint16_t value) {
    std::memcpy(to, &value, sizeof value);
}
inline void StoreU32(std::uint8_t* to, std::uint32_t value) {
    std::memcpy(to, &value, sizeof value);
}

}  // namespace tarvik
