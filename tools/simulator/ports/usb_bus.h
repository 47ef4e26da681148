// The mocked USB bus, kept by a helper process.

#pragma once

#include <string>

namespace brennix {

struct UsbIdentity {
    std::string vendor = "303a";
    std::string product = "1001";
    std::string serial = "1";
};

// With this as its only argument, the program serves the bus.
constexpr const char* kUsbBusArgument = "--serve-usb-bus";

// Serves lines from standard input until it ends. Returns the exit code.
int ServeUsbBus();

}  // namespace brennix
