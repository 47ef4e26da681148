#pragma once

// The relay of this program, through its control channel.

#include <string>

#include "conformance/framework/simulator.h"

namespace conformance {

// Counts, waits and violations concern the packets of its clients, that is, of the library:
// WaitFor(1, "in LOGN").
class Relay : public Simulator {
public:
    Relay() : Simulator("BRENNIX_RELAY_CONTROL") {}

    // Values for the configuration; empty if the program runs without a relay.
    static std::string PublicKey();         // serverPublicKey
    static std::string TcpAddress();        // serverAddress
    static std::string WebSocketAddress();  // websocketAddress
    static std::string SecureWebSocketAddress();
    static std::string ProxyAddress();     // proxyAddress
    static std::string CertificateFile();  // of SecureWebSocketAddress: localhost, 127.0.0.1

    // Adds faults: "once NHS2 flip 800".
    void Fault(const std::string& rules) { Command("fault " + rules); }
    // Accepts connections, or refuses them.
    void Listen(bool on) { Command(on ? "listen on" : "listen off"); }
    void KillConnections() { Command("kill"); }
};

}  // namespace conformance
