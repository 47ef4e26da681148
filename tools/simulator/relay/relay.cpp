#include "relay/relay.h"

#include <algorithm>

namespace brennix {

Relay::Relay(EventLoop* loop, RelaySettings settings, std::size_t keep,
             std::function<void(const std::string&)> say)
    : loop_(loop),
      settings_(std::move(settings)),
      record_(keep, "client"),
      say_(std::move(say)),
      dongles_(loop, 0) {}

Relay::~Relay() = default;

void Relay::Listen(Carrier carrier, const std::string& host, std::uint16_t port, TlsContext tls) {
    if (tls) tls_ = std::move(tls);
    ports_[carrier] = std::make_unique<Listener>(loop_, host, port,
                                                 [this, carrier](int fd) { Accept(carrier, fd); });
}

void Relay::ListenAsProxy(const std::string& host, std::uint16_t port) {
    proxy_ = std::make_unique<ConnectProxy>(loop_, host, port, [this](const std::string& text) {
        record_.AddText(0, Direction::kEvent, "proxy: " + text);
        say_("proxy: " + text);
    });
}

Listener* Relay::Port(Carrier carrier) {
    const auto found = ports_.find(carrier);
    return found == ports_.end() ? nullptr : found->second.get();
}

std::size_t Relay::AddDongle(DongleSetup setup) {
    while (FindDongle(setup.identity.mac))
        ++setup.identity.mac[5];
    const std::size_t index = dongles_.AddDongle(std::move(setup), this);
    dongles_.Plug(index, Part::kAll);
    return index;
}

std::vector<Client*> Relay::Clients() {
    std::vector<Client*> list;
    for (const auto& [number, client] : clients_)
        list.push_back(client.get());
    return list;
}

Client* Relay::Find(std::size_t number) {
    const auto found = clients_.find(number);
    return found == clients_.end() ? nullptr : found->second.get();
}

void Relay::Accept(Carrier carrier, int fd) {
    const std::size_t number = ++last_client_;
    SSL_CTX* const tls = carrier == Carrier::kSecureWebSocket ? tls_.get() : nullptr;
    Client::Host* const host = this;
    clients_[number] = std::make_unique<Client>(host, number, carrier, fd, tls);
    clients_[number]->Start();
}

// Deferred, since the client is still executing.
void Relay::Gone(std::size_t client) {
    loop_->After(std::chrono::milliseconds(0), [this, client] {
        const auto found = clients_.find(client);
        if (found == clients_.end()) return;
        past_violations_ += found->second->Violations();
        if (!found->second->LastViolation().empty()) {
            last_violation_ = found->second->LastViolation();
        }
        clients_.erase(found);
    });
}

void Relay::Say(std::size_t client, const std::string& text) {
    say_("client " + std::to_string(client) + ": " + text);
}

void Relay::SendLogin(std::size_t dongle, std::uint32_t type, Client* client) {
    const Bytes login = MakeLogin(dongles_.At(dongle).Setup().identity);
    const Bytes packet = MakePacket(type, PacketPayload(login));
    for (const auto& [number, other] : clients_) {
        if (client != nullptr ? other.get() == client : other->IsIdentified()) {
            other->SendPacket(packet);
        }
    }
}

void Relay::SendLogins(Client* client) {
    for (std::size_t i = 0; i < dongles_.Count(); ++i) {
        const Dongle& dongle = dongles_.At(i);
        if (dongle.IsPowered() && !dongle.Setup().mute) SendLogin(i, type::kLogn, client);
    }
}

std::optional<std::size_t> Relay::FindDongle(ByteSpan mac) {
    for (std::size_t i = 0; i < dongles_.Count(); ++i) {
        const auto& own = dongles_.At(i).Setup().identity.mac;
        if (std::equal(own.begin(), own.end(), mac.begin(), mac.end())) return i;
    }
    return std::nullopt;
}

bool Relay::ToDongle(std::size_t dongle, std::size_t client, ByteSpan packet) {
    if (!dongles_.At(dongle).IsPowered()) return false;
    dongles_.At(dongle).Receive(packet, client);
    return true;
}

// An answer goes to the client that asked, everything else to all clients of the dongle.
void Relay::FromDongle(std::size_t dongle, std::uint64_t asker, ByteSpan packet) {
    if (asker != 0) {
        if (Client* client = Find(asker)) client->SendPacket(packet);
        return;
    }
    for (const auto& [number, client] : clients_) {
        if (client->Dongle() == dongle) client->SendPacket(packet);
    }
}

// A dongle logs in when it appears; its disappearance is not announced.
void Relay::PowerChanged(std::size_t dongle, bool powered) {
    const Identity& identity = dongles_.At(dongle).Setup().identity;
    say_("dongle " + std::to_string(dongle) + " \"" + identity.name + "\" (" + ToHex(identity.mac) +
         ") is " + (powered ? "here" : "gone"));
    if (powered && !dongles_.At(dongle).Setup().mute) SendLogin(dongle, type::kLogn, nullptr);
}

std::uint64_t Relay::Violations() {
    std::uint64_t sum = past_violations_ + dongles_.Violations();
    for (const auto& [number, client] : clients_) {
        sum += client->Violations();
        if (!client->LastViolation().empty()) last_violation_ = client->LastViolation();
    }
    for (std::size_t i = 0; i < dongles_.Count(); ++i) {
        const std::string& last = dongles_.At(i).LastViolation();
        if (!last.empty()) last_violation_ = last;
    }
    return sum;
}

void Relay::ClearViolations() {
    for (std::size_t i = 0; i < dongles_.Count(); ++i)
        dongles_.At(i).ClearViolations();
    for (const auto& [number, client] : clients_)
        client->ClearViolations();
    past_violations_ = 0;
    last_violation_.clear();
}

const std::string& Relay::LastViolation() const { return last_violation_; }

}  // namespace brennix
