#include "conformance/framework/relay.h"

#include <cstdlib>

namespace conformance {
namespace {

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

std::string Relay::PublicKey() { return Variable("BRENNIX_RELAY_PUBLIC_KEY"); }
std::string Relay::TcpAddress() { return Variable("BRENNIX_RELAY_TCP"); }
std::string Relay::WebSocketAddress() { return Variable("BRENNIX_RELAY_WS"); }
std::string Relay::SecureWebSocketAddress() { return Variable("BRENNIX_RELAY_WSS"); }
std::string Relay::ProxyAddress() { return Variable("BRENNIX_RELAY_PROXY"); }
std::string Relay::CertificateFile() { return Variable("BRENNIX_RELAY_CERTIFICATE"); }

}  // namespace conformance
