// How a simulated dongle shows itself on the air, and what goes wrong there.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "protocol/wire.h"

namespace brennix {

// What an exchange with the dongle ends with, as the line protocol has it.
enum class LinkStatus : std::uint32_t {
    kSuccess = 0,
    kUnreachable = 1,
    kProtocolError = 2,
    kAccessDenied = 3,
};

struct RadioSettings {
    // Advertising.
    std::optional<Bytes> name = Bytes{'B', 'r', 'e', 'n', 'n', 'i', 'x'};  // none: carries no name
    bool name_in_response = false;  // in the answer to a scan request, so seen by active scans only
    std::int32_t rssi = -60;        // dBm
    std::uint32_t interval_ms = 100;
    std::uint32_t advertise_count = 0;  // so often in one scan; 0: again and again
    bool advertises_connected = false;

    // Connecting. `mtu` is the attribute protocol's, which keeps three bytes of it for itself.
    std::string refuse;              // why; empty: taken
    std::uint32_t refuse_count = 0;  // so many of them; 0: all
    std::uint32_t connect_ms = 0;
    std::uint32_t mtu = 247;

    // What is found and done on the connection.
    bool has_service = true;
    bool has_characteristic = true;
    LinkStatus services_status = LinkStatus::kSuccess;
    LinkStatus characteristics_status = LinkStatus::kSuccess;
    LinkStatus subscribe_status = LinkStatus::kSuccess;
    LinkStatus write_status = LinkStatus::kSuccess;
};

// Changes the settings that the JSON object has. Throws JsonError.
void ChangeRadioSettings(const std::string& text, RadioSettings* settings);

}  // namespace brennix
