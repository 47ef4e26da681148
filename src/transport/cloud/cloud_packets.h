#pragma once

#include "transport/cloud/cloud_state.h"

// The library's own packets. Each is put at the tail of the transmit queue.
namespace tarvik {

// The library's login: version, user, build.
void CloudSendLogin();
// Asks the relay for the logins of all dongles.
void SendIdentify();
// Selects a dongle behind the relay.
void SendAddress(const DeviceAddress& address);

}  // namespace tarvik
