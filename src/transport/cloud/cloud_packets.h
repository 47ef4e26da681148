#pragma once

#include "transport/cloud/cloud_state.h"

// The library's own packets to the relay. Each is put at the tail of the transmit queue.
namespace tarvik {

// The library's login: version, user, build.
void CloudSendLogin();
// Selects a dongle behind the relay.
void SendAddress(const DeviceAddress& address);

}  // namespace tarvik
