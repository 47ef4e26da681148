// DEVI and DEVA: the device identifies itself, and the relay accepts or rejects it.
#include <cstring>

#include "transport/cloud/cloud_log.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_answer.h"
#include "transport/cloud/secure_channel_state.h"

namespace tarvik {
namespace {

PacketPtr MakeDevi() {
    DeviceIdentityWire fields{};
    fields.type = kTypeDevi;
    static_assert(sizeof fields.public_key == kPointSize);
    const EncodedPoint& key = cloud_identity.devicePublicKey;
    // The short id is the start of X, which follows the byte for the encoding.
    if (cloud_identity.identityLoaded) {
        std::memcpy(fields.short_id, &key[1], sizeof fields.short_id);
    }
    std::memcpy(fields.public_key, key.data(), key.size());
    return BuildPacket(fields);
}

void SendDevi(DeviceQueues* queues) {
    PacketPtr packet = MakeDevi();
    if (packet == nullptr) return;  // out of memory: no answer will come
    const std::uint8_t* id = packet->Bytes() + offsetof(DeviceIdentityWire, short_id);
    CloudLog("[CloudSec] [I] Sending device identification: UUID=%02X:%02X:%02X:%02X:%02X:%02X\n",
             id[0], id[1], id[2], id[3], id[4], id[5]);
    EnqueueTransmitPacket(queues, packet);
}

}  // namespace

const char* CloudSecStatusText(std::uint32_t status) {
    switch (status) {
        case kDeviceRegistered:
            return "OK (registered)";
        case kDeviceIsolated:
            return "ISOLATED (unknown device)";
        case kDeviceRejected:
            return "REJECTED (blacklisted)";
        default:
            return "UNKNOWN";
    }
}

bool CloudSecIdentify(DeviceQueues* queues, std::uint32_t* status, const std::atomic<bool>* abort) {
    static constexpr ExpectedAnswer kDeva = {
        .type = kTypeDeva,
        .shortest = sizeof(DeviceIdentityAckWire),
        .missing = "[CloudSec] [E] Failed to read ident ack\n",
        .unexpected = "Unexpected ident ack type",
    };
    SendDevi(queues);
    const PacketPtr packet = WaitForAnswer(queues, kDeva, abort);
    if (packet == nullptr) return false;
    const auto fields = packet->Fields<DeviceIdentityAckWire>();
    *status = fields->status;
    CloudLog(
        "[CloudSec] [I] Device identification acknowledged: status=%lu (%s), "
        "capabilities=0x%08lx\n",
        static_cast<unsigned long>(*status), CloudSecStatusText(*status),
        static_cast<unsigned long>(fields->capabilities));
    return true;
}

}  // namespace tarvik
