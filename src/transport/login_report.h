#pragma once

#include "transport/transport.h"

namespace tarvik {

// Adds the dongle of a login packet that arrived outside a scan to the modules of the cloud
// transport. Implemented by the module registry. `transport` is for the log and may be null. Takes
// the module lock and may call the application back. Returns 1 if a new module was added.
int DpduTransportReportLoginPacket(const Transport* transport, const Packet* login_packet,
                                   DeviceQueues* queues);

}  // namespace tarvik
