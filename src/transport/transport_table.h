#pragma once

#include <cstdint>

#include "transport/transport.h"

namespace tarvik {

inline constexpr std::int32_t kMaxTransports = 16;

struct TransportRegistry {
    const Transport* entries[kMaxTransports];
    std::int32_t count;
};
// Filled once, at library load; never emptied.
extern TransportRegistry TransportTable;

// Appends; does nothing when the table is full.
void RegisterTransport(const Transport* transport);
// Serial, Cloud, BLE, Dummy, in this order.
void RegisterTransports();
// Null: no transport has this id.
const Transport* FindTransport(std::uint32_t id);

}  // namespace tarvik
