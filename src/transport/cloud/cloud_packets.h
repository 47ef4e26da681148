#pragma once

#include "transport/cloud/cloud_state.h"

// Packets of the library's own, put at the tail of the transmit queue.
namespace tarvik {

// The library's login: version, user, build.
void CloudSendLogin();
// Asks the relay for the logins of all dongles.
void SendIdentify();
// Selects a dongle behind the relay.
void SendAddress(const DeviceAddress& address);

}  // namespace tarvik
