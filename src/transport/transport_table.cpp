#include "transport/transport_table.h"

namespace tarvik {

TransportRegistry TransportTable{};

void RegisterTransport(const Transport* transport) {
    if (TransportTable.count >= kMaxTransports) return;
    TransportTable.entries[TransportTable.count] = transport;
    ++TransportTable.count;
}

void RegisterTransports() {
    RegisterTransport(&kSerialTransport);
    RegisterTransport(&kCloudTransport);
    RegisterTransport(&kBleTransport);
    RegisterTransport(&kDummyTransport);
}

const Transport* FindTransport(std::uint32_t id) {
    for (std::int32_t i = 0; i < TransportTable.count; ++i) {
        if (TransportTable.entries[i]->id == id) return TransportTable.entries[i];
    }
    return nullptr;
}

}  // namespace tarvik
