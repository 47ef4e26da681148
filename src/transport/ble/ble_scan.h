#pragma once

#include <cstdint>

#include "transport/transport.h"

namespace tarvik {

bool BleUpdateDevices(std::uint32_t timeout_ms, ReportDevice report, void* context);

}  // namespace tarvik
