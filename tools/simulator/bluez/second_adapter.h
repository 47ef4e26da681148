// A computer's other adapter, with one device that it knows. The radio is not behind it.

#pragma once

#include <string>

#include "bluez/bus_object.h"

namespace brennix {

class SecondAdapter {
public:
    SecondAdapter(sdbus::IConnection* connection, const std::string& path, bool powered,
                  const std::string& address);

    // It hears the device's advertisement, if it is switched on.
    void Hear();

private:
    const bool powered_;
    BusObject adapter_;
    BusObject device_;
};

}  // namespace brennix
