// The command line of brennix-relay.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "program/common_options.h"
#include "relay/settings.h"

namespace brennix {

struct RelayOptions : CommonOptions {
    bool keygen = false;

    std::string host = "127.0.0.1";
    std::optional<std::uint16_t> tcp_port;
    std::optional<std::uint16_t> ws_port;
    std::optional<std::uint16_t> wss_port;
    std::optional<std::uint16_t> proxy_port;
    std::vector<std::string> proxy_maps;  // "NAME:PORT=TARGET"

    std::string folder;  // of key and certificate
    std::string key;     // hexadecimal; empty: the folder's
    std::uint32_t status = 0;
    std::vector<std::string> device_status;  // "ID=STATUS"
    std::uint32_t capabilities = 0;
    std::size_t longest_packet = kMaxPlainPacket;
    std::vector<std::string> faults;

    bool quiet = false;
};

// Empty: the program has finished (help, version or an error) and exits with `exit_code`.
std::optional<RelayOptions> ReadRelayOptions(int argc, char** argv, int* exit_code);

}  // namespace brennix
