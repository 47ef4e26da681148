#pragma once

#include "transport/cloud/cloud_state.h"

// The library's own packets to the relay. Those that are sent are put at the tail of the transmit
// queue.
namespace tarvik {

// The library's login: version, user, build. Null: memory is out.
PacketPtr MakeCloudLogin();
void CloudSendLogin();
// Selects a dongle behind the relay.
void SendAddress(const DeviceAddress& address);

}  // namespace tarvik
