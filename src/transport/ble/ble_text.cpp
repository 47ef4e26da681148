#include "transport/ble/ble_text.h"

#include "support/log.h"

namespace tarvik {

BleAddressText::BleAddressText(std::uint64_t address) {
    const auto byte = [address](unsigned shift) {
        return static_cast<unsigned>(address >> shift & 0xFF);
    };
    FormatText(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", byte(40), byte(32), byte(24),
               byte(16), byte(8), byte(0));
}

BleErrorText::BleErrorText(const BleError& error) {
    FormatText(text, sizeof text, "%s", error.message().c_str());
}

BleErrorText::BleErrorText() {
    try {
        throw;
    } catch (const BleError& error) {
        FormatText(text, sizeof text, "%s", error.message().c_str());
    } catch (...) {
        FormatText(text, sizeof text, "Unknown error");
    }
}

}  // namespace tarvik
