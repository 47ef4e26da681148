// The relay: its ports, clients and dongles, and the routing between them.

#pragma once

#include <map>
#include <memory>
#include <vector>

#include "dongle/simulator.h"
#include "record/record.h"
#include "relay/certificate.h"
#include "relay/client.h"
#include "relay/faults.h"
#include "relay/proxy.h"
#include "relay/settings.h"
#include "sockets/listener.h"

namespace brennix {

class Relay : private Client::Host, private Uplink {
public:
    // `say` gets lines for people about events.
    Relay(EventLoop* loop, RelaySettings settings, std::size_t keep,
          std::function<void(const std::string&)> say);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    // `tls` for Carrier::kSecureWebSocket. Throws std::system_error.
    void Listen(Carrier carrier, const std::string& host, std::uint16_t port, TlsContext tls = {});
    void ListenAsProxy(const std::string& host, std::uint16_t port);
    Listener* Port(Carrier carrier);  // null: none
    ConnectProxy* Proxy() { return proxy_.get(); }

    // The dongle is powered at once. If its address is taken, it is incremented.
    std::size_t AddDongle(DongleSetup setup);

    Simulator& Dongles() { return dongles_; }
    std::vector<Client*> Clients();
    Client* Find(std::size_t number);  // null: gone
    std::uint64_t Connections() const { return last_client_; }

    EventLoop& Loop() override { return *loop_; }
    RelaySettings& Settings() override { return settings_; }
    FaultScript& Faults() override { return faults_; }
    Record& Log() override { return record_; }

    // Sends a dongle's login to `client`, or to all clients that have identified themselves.
    void SendLogin(std::size_t dongle, std::uint32_t type, Client* client);
    // Of all clients, including those that left, and of packets to dongles.
    std::uint64_t Violations();
    const std::string& LastViolation() const;  // as of the last call of Violations
    void ClearViolations();

private:
    void Accept(Carrier carrier, int fd);
    void Say(std::size_t client, const std::string& text) override;
    void SendLogins(Client* client) override;
    std::optional<std::size_t> FindDongle(ByteSpan mac) override;
    bool ToDongle(std::size_t dongle, std::size_t client, ByteSpan packet) override;
    void Gone(std::size_t client) override;
    void FromDongle(std::size_t dongle, std::uint64_t asker, ByteSpan packet) override;
    void PowerChanged(std::size_t dongle, bool powered) override;
    std::size_t LongestPacket(std::size_t) const override { return settings_.longest_packet; }

    EventLoop* loop_;
    RelaySettings settings_;
    FaultScript faults_;
    Record record_;
    std::function<void(const std::string&)> say_;
    Simulator dongles_;
    TlsContext tls_;
    std::map<Carrier, std::unique_ptr<Listener>> ports_;
    std::unique_ptr<ConnectProxy> proxy_;
    std::map<std::size_t, std::unique_ptr<Client>> clients_;  // by number
    std::size_t last_client_ = 0;
    std::uint64_t past_violations_ = 0;
    std::string last_violation_;
};

}  // namespace brennix
