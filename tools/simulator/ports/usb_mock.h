// Mocked USB serial devices on Linux: programs under the mock find them with udev and open their
// nodes in /dev. Nothing changes for other programs.

#pragma once

#include <map>
#include <memory>
#include <string>

#include "ports/port_listing.h"
#include "ports/usb_bus.h"
#include "process/helper_process.h"

namespace brennix {

class UsbMock {
public:
    // `program`: this program, which is also the helper that keeps the mocked bus. `folder`: the
    // folder of libbrennix_mocked_ports.so. Throws std::runtime_error.
    UsbMock(const std::string& program, const std::string& folder);

    // `node`: "ttyACM0", "ttyUSB3". The mock must outlive the listing.
    std::unique_ptr<PortListing> AddPort(const std::string& node, UsbIdentity identity);

    // The environment in which a program sees the mocked devices.
    std::map<std::string, std::string> Environment() const;
    static bool IsNodeName(const std::string& node);

private:
    HelperProcess bus_;
    std::string root_;
    std::string preload_;
};

}  // namespace brennix
