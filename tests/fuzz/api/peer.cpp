#include "fuzz/api/peer.h"

#include <atomic>
#include <memory>
#include <thread>

#include "fuzz/link/fuzz_support.h"
#include "link/packet_queue.h"
#include "platform/thread.h"
#include "transport/transport_table.h"

namespace tarvik::fuzz {
namespace {

constexpr std::uint32_t kPeerTransport = 1;
constexpr std::uint32_t kMostBytes = 64;  // of one answer

DeviceQueues queues;
std::unique_ptr<Input> script = std::make_unique<Input>(Bytes{});
std::atomic<bool> running{false};
std::thread thread;

void Receive(PacketPtr packet) {
    EnqueueReceivedPacket(&queues, packet);  // refused while the dongle is away
}

void Answer(std::uint32_t wait_time, std::uint32_t req_id, const Bytes& payload) {
    Bytes bytes(12 + payload.size());
    StoreU32(bytes.data(), wait_time);
    StoreU32(bytes.data() + 4, static_cast<std::uint32_t>(payload.size()));
    StoreU32(bytes.data() + 8, req_id);
    std::copy(payload.begin(), payload.end(), bytes.begin() + 12);
    Receive(PacketFrom(kTypeCres, bytes.data(), bytes.size()));
}

// Entries of any id and any length, some of which may not fit.
void AnswerMulti(std::uint32_t req_id) {
    const std::uint32_t count = script->Below(5);
    Bytes bytes(12);
    StoreU32(bytes.data(), kWaitTimeMulti);
    StoreU32(bytes.data() + 4, count);
    StoreU32(bytes.data() + 8, req_id);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t length = script->Below(12);
        Bytes entry(8);
        StoreU32(entry.data(), script->Below(4));
        StoreU32(entry.data() + 4, script->Below(16) == 0 ? script->U32() : length);
        const Bytes data = script->Take(length);
        entry.insert(entry.end(), data.begin(), data.end());
        if (script->Below(4) != 0) entry.resize((entry.size() + 7) / 8 * 8);
        bytes.insert(bytes.end(), entry.begin(), entry.end());
    }
    Receive(PacketFrom(kTypeCres, bytes.data(), bytes.size()));
}

void Busy(std::uint32_t req_id) {
    Bytes bytes(4);
    StoreU32(bytes.data(), req_id);
    const Bytes reason = script->Take(script->Below(8));
    bytes.insert(bytes.end(), reason.begin(), reason.end());
    Receive(PacketFrom(kTypeBusy, bytes.data(), bytes.size()));
}

void SendFrames() {
    for (std::uint32_t left = script->Below(4); left > 0; --left) {
        const Bytes bytes = script->Take(script->Below(17));
        Receive(PacketFrom(kTypeRawc, bytes.data(), bytes.size()));
    }
}

void SendAnything() {
    static constexpr std::uint32_t kTypes[] = {kTypeCres, kTypeBusy, kTypeRawc, kTypeLog,
                                               kTypeTele, kTypeLogn, kTypeRepl, kTypeFrag};
    const std::uint32_t type = script->OneOf(kTypes);
    const Bytes bytes = script->Take(script->Below(kMostBytes));
    Receive(PacketFrom(type, bytes.data(), bytes.size()));
}

// The dongle is unplugged, and plugged in again at once.
void Replug() {
    queues.available = false;
    WakeQueueWaiters(&queues.rx);
    queues.available = true;
}

void ReactTo(const Packet& packet) {
    const std::uint32_t req_id = packet.length >= 32 ? packet.U32(28) : 0;
    switch (script->Below(10)) {
        case 0:
        case 1:
        case 2:
            Answer(script->U8(), req_id, script->Take(script->Below(kMostBytes)));
            break;
        case 3:
            Answer(kWaitTimeError - script->Below(2), req_id, {});
            break;
        case 4:
            AnswerMulti(req_id);
            break;
        case 5:
            Busy(req_id);
            Answer(1, req_id, script->Take(script->Below(8)));
            break;
        case 6:
            SendFrames();
            break;
        case 7:
            SendAnything();
            break;
        case 8:
            Replug();
            break;
        default:
            break;  // silent
    }
}

void Play() {
    while (running) {
        if (const PacketPtr packet = TakePacket(&queues.tx, 10)) ReactTo(*packet);
    }
}

void Init() {
    InitializeQueue(&queues.rx);
    InitializeQueue(&queues.tx);
    queues.available = true;
}

void Deinit() {
    queues.available = false;
    FreeQueue(&queues.rx);
    FreeQueue(&queues.tx);
}

void Start() {
    if (!running.exchange(true)) thread = std::thread(Play);
}

void Stop() {
    if (!running.exchange(false)) return;
    WakeQueueWaiters(&queues.tx);
    thread.join();
}

bool UpdateDevices(std::uint32_t, ReportDevice report, void* context) {
    LoginRecord login{};
    StoreU32(login.bytes + 20, 5);  // the model
    std::memcpy(login.bytes + 64, "Peer", 4);
    for (std::uint8_t i = 0; i < 2; ++i) {
        login.bytes[17] = i;  // of the address
        report(context, {kPeerTransport, login, i == 0 ? &queues : nullptr});
    }
    return true;
}

constexpr Transport kPeer = {.name = "Serial",
                             .id = kPeerTransport,
                             .interface_name = "USB",
                             .connection_type = "USB",
                             .module_type_id = 1,
                             .mtu = 0,
                             .Init = Init,
                             .Deinit = Deinit,
                             .Start = Start,
                             .Stop = Stop,
                             .UpdateDevices = UpdateDevices,
                             .AddressDevice = nullptr,
                             .Disconnect = nullptr,
                             .update_timeout_ms = 5,
                             .connect_timeout_ms = 0};

}  // namespace

void RegisterPeer() { RegisterTransport(&kPeer); }

void SetPeerScript(Bytes bytes) { script = std::make_unique<Input>(std::move(bytes)); }

}  // namespace tarvik::fuzz
