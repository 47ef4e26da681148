#include "uds/ecu_address.h"

#include "text/hex.h"

namespace dpdu {

std::optional<std::uint32_t> ParseCanId(const std::string& text) {
    const std::optional<std::uint32_t> id = ParseHexNumber(text);
    return id && *id <= kLargest29BitId ? id : std::nullopt;
}

std::optional<EcuAddress> ParseEcuAddress(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) return std::nullopt;
    const std::optional<std::uint32_t> request = ParseCanId(text.substr(0, colon));
    const std::optional<std::uint32_t> response = ParseCanId(text.substr(colon + 1));
    if (!request || !response) return std::nullopt;
    return EcuAddress{*request, *response};
}

std::string CanIdText(std::uint32_t id) { return HexNumber(id, id > kLargest11BitId ? 8 : 3); }

std::string EcuAddressText(const EcuAddress& ecu) {
    return CanIdText(ecu.request_id) + ":" + CanIdText(ecu.response_id);
}

}  // namespace dpdu
