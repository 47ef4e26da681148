// The relay's keys, and what it tells its clients.

#pragma once

#include <map>
#include <string>

#include "relay/secure_channel.h"

namespace brennix {

enum class Carrier { kTcp, kWebSocket, kSecureWebSocket };

inline const char* CarrierName(Carrier carrier) {
    switch (carrier) {
        case Carrier::kTcp:
            return "tcp";
        case Carrier::kWebSocket:
            return "ws";
        case Carrier::kSecureWebSocket:
            return "wss";
    }
    return "";
}

// The longest packet that does not exceed kMaxPacketSize once sealed.
constexpr std::size_t kMaxPlainPacket = kMaxPacketSize - kSealedHead;

struct RelaySettings {
    KeyPair key;
    Bytes welcome = {'w', 'e', 'l', 'c', 'o', 'm', 'e', '!'};
    std::uint32_t status = 0;                            // in DEVA
    std::map<std::string, std::uint32_t> device_status;  // of individual devices, by id
    std::uint32_t capabilities = 0;
    std::size_t longest_packet = kMaxPlainPacket;  // longer ones are fragmented

    std::uint32_t StatusOf(const std::string& device_id) const {
        const auto found = device_status.find(device_id);
        return found == device_status.end() ? status : found->second;
    }
};

}  // namespace brennix
