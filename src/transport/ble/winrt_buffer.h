#pragma once

#include <cstdint>
#include <span>

#include "transport/ble/winrt_pointer.h"

namespace tarvik::winrt {

// A new buffer with a copy of the bytes.
Pointer<Buffer> MakeBuffer(std::span<const std::uint8_t> bytes);

// The bytes in a buffer, which live as long as it does.
std::span<const std::uint8_t> BytesOf(const Pointer<Buffer>& buffer);

}  // namespace tarvik::winrt
