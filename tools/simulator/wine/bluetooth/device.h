// Devices, and how they are opened.

#pragma once

#include "object.h"

namespace brennix {

Ref<IFactory> MakeDeviceFactory();

}  // namespace brennix
