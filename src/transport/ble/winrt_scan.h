#pragma once

#include <memory>

#include "transport/ble/ble_radio.h"
#include "transport/ble/winrt_runtime.h"

namespace tarvik {

std::unique_ptr<BleScan> CreateWinrtScan(winrt::Runtime& runtime, BleScan::Handler& handler);

}  // namespace tarvik
