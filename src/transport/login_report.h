#pragma once

#include "transport/transport.h"

namespace tarvik {

// Files the dongle of a login packet that came outside a scan under the cloud transport; the module
// registry provides it. `transport` is for the log and may be null. Takes the module lock and may
// call the application back. Returns 1 if a new module was added.
int DpduTransportReportLoginPacket(const Transport* transport, const Packet* login_packet,
                                   DeviceQueues* queues);

}  // namespace tarvik
