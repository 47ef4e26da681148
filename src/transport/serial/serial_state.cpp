#include "transport/serial/serial_state.h"

namespace tarvik {

Immortal<SerialState> serial;

void AnnounceSerialChange() {
    LockGuard hold(serial->change_lock);
    serial->changed.WakeAll();
}

}  // namespace tarvik
