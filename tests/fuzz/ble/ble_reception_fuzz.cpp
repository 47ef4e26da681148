// Notifications from a dongle over Bluetooth LE. Each piece of the input is one notification: a
// length byte, then the bytes. The packets received must match a simple model of the rules, and
// every reply must fit into one write.

#include <span>
#include <vector>

#include "fuzz/link/fuzz_support.h"
#include "link/fragmentation.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_state.h"

using namespace tarvik;
using namespace tarvik::fuzz;

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Arrived {
    std::vector<Bytes> packets;  // for the module's links
    std::vector<Bytes> replies;  // to the dongle, defragmented
    bool operator==(const Arrived&) const = default;
};

Bytes BytesOf(const Packet& packet) { return {packet.Bytes(), packet.Bytes() + packet.length}; }

std::vector<Bytes> Split(std::span<const std::uint8_t> input) {
    std::vector<Bytes> values;
    while (!input.empty()) {
        const std::size_t length = std::min<std::size_t>(input[0], input.size() - 1);
        const auto value = input.subspan(1, length);
        values.emplace_back(value.begin(), value.end());
        input = input.subspan(1 + length);
    }
    return values;
}

// The packet in one notification. Null: it is dropped.
PacketPtr PacketIn(const Bytes& value) {
    if (value.size() < MIN_PKT_SIZE) return nullptr;
    const std::uint32_t length = LoadU32(value.data() + 4);
    if (length < MIN_PKT_SIZE || length > value.size()) return nullptr;
    return PacketFrom(LoadU32(value.data()), value.data() + MIN_PKT_SIZE, length - MIN_PKT_SIZE);
}

Arrived Expected(const std::vector<Bytes>& values) {
    static const char source = 0;
    Arrived arrived;
    FragInit();
    for (const Bytes& value : values) {
        PacketPtr packet = PacketIn(value);
        PacketPtr complete;
        if (packet == nullptr || !FragReceivePacket(&source, packet, &complete)) continue;
        if (complete->type == kTypeTele) continue;  // not for the links
        const bool is_ping = complete->type == kTypePing;
        if (is_ping) complete->type = kTypeRepl;
        (is_ping ? arrived.replies : arrived.packets).push_back(BytesOf(*complete));
    }
    FragDeinit();
    return arrived;
}

// Defragments a reply that begins with `fragment`.
Bytes Join(DeviceQueues* dongle, PacketPtr fragment) {
    constexpr std::uint32_t kFragmentHeader = 16;
    Bytes whole;
    const std::uint32_t total = LoadU32(fragment->Bytes() + 12);
    for (;;) {
        Require(fragment != nullptr && fragment->type == kTypeFrag);
        Require(fragment->length > kFragmentHeader && fragment->length <= kBleMtu);
        const Bytes bytes = BytesOf(*fragment);
        whole.insert(whole.end(), bytes.begin() + kFragmentHeader, bytes.end());
        if (whole.size() >= total) return whole;
        fragment = TakePacket(&dongle->tx, 0);
    }
}

Arrived Drain(DeviceQueues* dongle) {
    Arrived arrived;
    while (const PacketPtr packet = TakePacket(&dongle->rx, 0))
        arrived.packets.push_back(BytesOf(*packet));
    while (PacketPtr packet = TakePacket(&dongle->tx, 0)) {
        Require(packet->length <= kBleMtu);
        const bool is_fragment = packet->type == kTypeFrag;
        arrived.replies.push_back(is_fragment ? Join(dongle, std::move(packet)) : BytesOf(*packet));
    }
    return arrived;
}

Arrived Received(const std::vector<Bytes>& values) {
    BleQueueSet dongle(0);
    BleConnection connection(nullptr, &dongle);
    FragInit();
    connection.TakeQueues();
    Require(connection.SetReady());
    for (const Bytes& value : values)
        connection.Notified(value);
    Arrived arrived = Drain(&dongle.queues);
    connection.Close();
    FragDeinit();
    return arrived;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryUse before = LiveMemory();
    const std::vector<Bytes> values = Split({data, size});
    Require(Received(values) == Expected(values));
    Require(LiveMemory().blocks == before.blocks);
    return 0;
}
