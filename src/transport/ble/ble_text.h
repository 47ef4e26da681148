#pragma once

#include <cstdint>

#include "transport/ble/ble_radio.h"

namespace tarvik {

// An address as it is displayed: "A0:B1:C2:D3:E4:F5".
struct BleAddressText {
    explicit BleAddressText(std::uint64_t address);
    char text[18];
};

// The message of an exception.
struct BleErrorText {
    BleErrorText();  // of the one being handled; only inside a handler
    explicit BleErrorText(const BleError& error);
    char text[512];
};

}  // namespace tarvik
