#pragma once

#include <cstdint>

#include "link/packet_queue.h"

namespace tarvik {

// What a scan reports for one dongle. Built on the caller's stack, valid during the call only.
struct DeviceReport {
    std::uint32_t transport;  // the transport's id
    LoginRecord login;
    DeviceQueues* queues;  // owned by the transport; outlives the module that keeps it
};
using ReportDevice = void (*)(void* context, const DeviceReport& report);

// One way of reaching dongles. A null slot means "not offered".
struct Transport {
    const char* name;
    std::uint32_t id;
    const char* interface_name;
    const char* connection_type;
    std::uint32_t module_type_id;
    std::uint32_t mtu;  // as declared; fragmentation uses the mtu of the dongle's queues
    void (*Init)();     // locks and static state; a second call does nothing
    void (*Deinit)();   // stops if running, frees queues; a second call does nothing
    void (*Start)();    // starts threads if its switch is on; returns at once; idempotent
    void (*Stop)();     // returns after its threads have ended
    // Blocks for about timeout_ms. Calls report on this thread, once per dongle, while the other
    // transports are scanning too. False: not initialised or not running.
    bool (*UpdateDevices)(std::uint32_t timeout_ms, ReportDevice report, void* context);
    bool (*AddressDevice)(const std::uint8_t* mac);  // selects one dongle behind a relay
    void (*Disconnect)(std::uint32_t hMod);
    std::uint32_t update_timeout_ms;
    std::uint32_t connect_timeout_ms;
};

extern const Transport kSerialTransport;
extern const Transport kCloudTransport;
extern const Transport kBleTransport;
extern const Transport kDummyTransport;

}  // namespace tarvik
