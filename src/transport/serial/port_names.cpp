#include "transport/serial/port_names.h"

#include <cstring>

namespace tarvik {

namespace {

constexpr std::int32_t kFirstTtyUsb = 128;

// The decimal number after the prefix, at most `last`. Systems write no leading zeros, so a name
// with one is not a port.
std::optional<std::int32_t> NumberAfter(const char* name, const char* prefix, std::int32_t last) {
    const std::size_t prefix_length = std::strlen(prefix);
    if (std::strncmp(name, prefix, prefix_length) != 0) return std::nullopt;
    const char* digits = name + prefix_length;
    if (digits[0] == '\0' || (digits[0] == '0' && digits[1] != '\0')) return std::nullopt;
    std::int32_t number = 0;
    for (; *digits != '\0'; ++digits) {
        if (*digits < '0' || *digits > '9') return std::nullopt;
        number = number * 10 + (*digits - '0');
        if (number > last) return std::nullopt;
    }
    return number;
}

}  // namespace

std::optional<std::int32_t> NumberOfComPort(const char* name) {
    return NumberAfter(name, "COM", kSerialPortCount - 1);
}

std::optional<std::int32_t> NumberOfTty(const char* name) {
    if (auto number = NumberAfter(name, "ttyACM", kSerialPortCount - 1)) return number;
    const auto usb = NumberAfter(name, "ttyUSB", kSerialPortCount - 1 - kFirstTtyUsb);
    if (!usb) return std::nullopt;
    return kFirstTtyUsb + *usb;
}

}  // namespace tarvik
