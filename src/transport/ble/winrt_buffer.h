#pragma once

#include <cstdint>
#include <span>

#include "transport/ble/winrt_pointer.h"

namespace tarvik::winrt {

// A new buffer with a copy of the bytes.
Pointer<Buffer> MakeBuffer(std::span<const std::uint8_t> bytes);

// The bytes in the buffer, valid as long as the buffer lives.
std::span<const std::uint8_t> BytesOf(const Pointer<Buffer>& buffer);

}  // namespace tarvik::winrt
