#include "unit/cloud/fake_channel.h"

#include <cstring>
#include <utility>

#include "transport/cloud/secure_channel.h"
#include "unit/test_support.h"

namespace tarvik::test {

Bytes SealedPacket(const Bytes& packet) {
    Bytes payload(16);
    payload.insert(payload.end(), packet.begin(), packet.end());
    return WirePacket(kTypeCryp, payload);
}

void FakeChannel::EndSession() { CloudSecClearSession(); }

void FakeChannel::Reset() {
    identity_failures = 0;
    handshake_failures = 0;
    identify_failures = 0;
    status = 0;
}

}  // namespace tarvik::test

namespace tarvik {

using test::FakeChannel;
using test::FakeNetwork;

struct CloudSecSession {
    std::atomic<bool> established{false};
};

namespace {

CloudSecSession session;

void SendBare(DeviceQueues* queues, std::uint32_t type) {
    PacketPtr packet = MakePacket(type, MIN_PKT_SIZE);
    EnqueueTransmitPacket(queues, packet);
}

// On the connection thread.
bool Works(std::atomic<std::uint32_t>* failures) {
    if (*failures == 0) return true;
    --*failures;
    return false;
}

}  // namespace

CloudSecSession& cloud_session = session;

bool CloudSecLoadIdentity() { return Works(&FakeChannel::identity_failures); }
bool CloudSecHandshake(DeviceQueues* queues, const std::atomic<bool>* abort) {
    const std::size_t before = FakeNetwork::Get().SentCount(kTypeNhs1);
    SendBare(queues, kTypeNhs1);
    if (!Works(&FakeChannel::handshake_failures)) return false;
    const auto is_sent = [before] { return FakeNetwork::Get().SentCount(kTypeNhs1) > before; };
    // A stop ends the transmit thread, which then sends nothing more.
    test::Eventually([&] { return is_sent() || (abort != nullptr && *abort); });
    if (!is_sent()) return false;
    session.established = true;
    return true;
}
bool CloudSecIdentify(DeviceQueues* queues, std::uint32_t* status, const std::atomic<bool>*) {
    SendBare(queues, kTypeDevi);
    *status = FakeChannel::status;
    return Works(&FakeChannel::identify_failures);
}
bool CloudSecEstablished() { return session.established; }
void CloudSecClearSession() { session.established = false; }
PacketPtr CloudSecSeal(PacketPtr packet) {
    if (!session.established || packet->type == kTypeNhs1) return packet;
    PacketPtr sealed = MakePacket(kTypeCryp, packet->length + 24);
    std::memcpy(sealed->Bytes() + 24, packet->Bytes(), packet->length);
    return sealed;
}
bool CloudSecOpen(CloudSecSession*, PacketPtr& packet) {
    if (packet->length < 32 || packet->U32(28) != packet->length - 24) return false;
    PacketPtr inner = MakePacket(packet->U32(24), packet->length - 24);
    std::memcpy(inner->Bytes(), packet->Bytes() + 24, inner->length);
    packet = std::move(inner);
    return true;
}

}  // namespace tarvik
