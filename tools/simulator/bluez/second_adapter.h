// A computer's other adapter, which knows one device. It is not connected to the radio.

#pragma once

#include <string>

#include "bluez/bus_object.h"

namespace brennix {

class SecondAdapter {
public:
    SecondAdapter(sdbus::IConnection* connection, const std::string& path, bool powered,
                  const std::string& address);

    // Receives the device's advertisement, if the adapter is on.
    void Hear();

private:
    const bool powered_;
    BusObject adapter_;
    BusObject device_;
};

}  // namespace brennix
