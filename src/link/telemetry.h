#pragma once

#include "link/packet.h"

namespace tarvik {

// Logs and traces a TELE packet.
void HandleTelemetryPacket(const Packet& packet);

}  // namespace tarvik
