// Devices, and how they are opened.

#pragma once

#include "wine/bluetooth/object.h"

namespace brennix {

Ref<IFactory> MakeDeviceFactory();

}  // namespace brennix
