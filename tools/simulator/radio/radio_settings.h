// How a simulated dongle appears on the air, and what goes wrong there.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "protocol/wire.h"

namespace brennix {

// The result of an exchange with the dongle, as in the line protocol.
enum class LinkStatus : std::uint32_t {
    kSuccess = 0,
    kUnreachable = 1,
    kProtocolError = 2,
    kAccessDenied = 3,
};

struct RadioSettings {
    // Advertising.
    std::optional<Bytes> name = Bytes{'B', 'r', 'e', 'n', 'n', 'i', 'x'};  // none: no name
    bool name_in_response = false;  // in the scan response, so seen by active scans only
    std::int32_t rssi = -60;        // dBm
    std::uint32_t interval_ms = 100;
    std::uint32_t advertise_count = 0;  // number of advertisements in one scan; 0: no limit
    bool advertises_connected = false;

    // Connecting. `mtu` is the attribute protocol's, which uses three bytes of it.
    std::string refuse;              // the reason; empty: accepts connections
    std::uint32_t refuse_count = 0;  // number of refusals; 0: all
    std::uint32_t connect_ms = 0;
    std::uint32_t mtu = 247;

    // Services and operations on the connection.
    bool has_service = true;
    bool has_characteristic = true;
    LinkStatus services_status = LinkStatus::kSuccess;
    LinkStatus characteristics_status = LinkStatus::kSuccess;
    LinkStatus subscribe_status = LinkStatus::kSuccess;
    LinkStatus write_status = LinkStatus::kSuccess;
};

// Changes only the settings that are present in the JSON object. Throws JsonError.
void ChangeRadioSettings(const std::string& text, RadioSettings* settings);

}  // namespace brennix
