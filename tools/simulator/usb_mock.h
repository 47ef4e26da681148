// Mocked USB serial devices on Linux: programs that run under the mock find them with udev and open
// their nodes in /dev. Nothing outside those programs changes.

#pragma once

#include <map>
#include <memory>
#include <string>

#include "helper_process.h"
#include "port_listing.h"

namespace brennix {

struct UsbIdentity {
    std::string vendor = "303a";
    std::string product = "1001";
    std::string serial = "1";
};

class UsbMock {
public:
    // `program`: this program, which is also the helper that keeps the mocked bus. `folder`: where
    // the library libbrennix_mocked_ports.so is. Throws std::runtime_error.
    UsbMock(const std::string& program, const std::string& folder);

    // `node`: "ttyACM0", "ttyUSB3". The mock must outlive the listing.
    std::unique_ptr<PortListing> AddPort(const std::string& node, UsbIdentity identity);

    // What a program needs in its environment to see the mocked devices.
    std::map<std::string, std::string> Environment() const;
    static bool IsNodeName(const std::string& node);

private:
    HelperProcess bus_;
    std::string root_;
    std::string preload_;
};

// The helper's side: serves lines from standard input until it ends. Returns the exit code.
int ServeUsbBus();
constexpr const char* kUsbBusArgument = "--serve-usb-bus";

}  // namespace brennix
