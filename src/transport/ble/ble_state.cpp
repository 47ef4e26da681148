#include "transport/ble/ble_state.h"

namespace tarvik {

Immortal<BleState> ble;

}  // namespace tarvik
