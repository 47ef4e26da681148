#pragma once

#include <string>

#include "transport/ble/ble_radio.h"

namespace tarvik::test {

// The message of the error that `body` throws. Empty: none.
template <typename Body>
std::string ErrorOf(Body body) {
    try {
        body();
    } catch (const BleError& error) {
        return error.message();
    }
    return "";
}

}  // namespace tarvik::test
