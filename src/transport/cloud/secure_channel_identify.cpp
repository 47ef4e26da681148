// DEVI and DEVA: who is at the other end of a session, and whether the relay lets it in.
#include <cstring>

#include "transport/cloud/cloud_log.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_state.h"

namespace tarvik {

static constexpr std::uint32_t kAnswerTimeoutMs = 1000;

static constexpr std::uint32_t kDeviSize = 84;
static constexpr std::size_t kDeviShortId = 8;  // six bytes
static constexpr std::size_t kDeviPublicKey = 16;

static constexpr std::uint32_t kDevaSize = 16;
static constexpr std::size_t kDevaStatus = 8;
static constexpr std::size_t kDevaCapabilities = 12;

static const char* StatusName(std::uint32_t status) {
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

static PacketPtr MakeDevi() {
    PacketPtr packet = MakePacket(kTypeDevi, kDeviSize);
    if (packet == nullptr) return nullptr;
    const EncodedPoint& key = cloud_identity.devicePublicKey;
    // The short id is the start of X, behind the byte that tells the encoding.
    if (cloud_identity.identityLoaded) std::memcpy(packet->Bytes() + kDeviShortId, &key[1], 6);
    std::memcpy(packet->Bytes() + kDeviPublicKey, key.data(), key.size());
    return packet;
}

static void SendDevi(DeviceQueues* queues) {
    PacketPtr packet = MakeDevi();
    if (packet == nullptr) return;  // out of memory: the answer fails to come
    const std::uint8_t* id = packet->Bytes() + kDeviShortId;
    CloudLog("[CloudSec] [I] Sending device identification: UUID=%02X:%02X:%02X:%02X:%02X:%02X\n",
             id[0], id[1], id[2], id[3], id[4], id[5]);
    EnqueueTransmitPacket(queues, packet);
}

static PacketPtr WaitForDeva(DeviceQueues* queues, const std::atomic<bool>* abort) {
    PacketPtr packet = WaitForPacket(queues, kTypeDeva, kAnswerTimeoutMs, kNoTag, abort);
    const bool is_deva = packet != nullptr && packet->type == kTypeDeva;
    if (packet == nullptr || (is_deva && packet->length < kDevaSize)) {
        CloudLog("[CloudSec] [E] Failed to read ident ack\n");
        return nullptr;
    }
    if (!is_deva) {
        CloudLog("[CloudSec] [E] Unexpected ident ack type: %c%c%c%c\n",
                 TypeLetter(packet->type, 0), TypeLetter(packet->type, 1),
                 TypeLetter(packet->type, 2), TypeLetter(packet->type, 3));
        return nullptr;
    }
    return packet;
}

bool CloudSecIdentify(DeviceQueues* queues, std::uint32_t* status, const std::atomic<bool>* abort) {
    SendDevi(queues);
    const PacketPtr packet = WaitForDeva(queues, abort);
    if (packet == nullptr) return false;
    *status = packet->U32(kDevaStatus);
    CloudLog(
        "[CloudSec] [I] Device identification acknowledged: status=%lu (%s), "
        "capabilities=0x%08lx\n",
        static_cast<unsigned long>(*status), StatusName(*status),
        static_cast<unsigned long>(packet->U32(kDevaCapabilities)));
    return true;
}

}  // namespace tarvik
