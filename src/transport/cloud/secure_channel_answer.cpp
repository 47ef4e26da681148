#include "transport/cloud/secure_channel_answer.h"

#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/cloud_log.h"

namespace tarvik {
PacketPtr WaitForAnswer(DeviceQueues* queues, const ExpectedAnswer& expected,
                        const std::atomic<bool>* abort) {
    PacketPtr packet =
        WaitForPacket(queues, expected.type, GetCloudLimits().answer_ms, kNoTag, abort);
    if (packet != nullptr && packet->type != expected.type) {
        CloudLog("[CloudSec] [E] %s: %s\n", expected.unexpected, ReadableType(packet->type).text);
        return nullptr;
    }
    if (packet == nullptr || packet->length < expected.shortest) {
        CloudLog("%s", expected.missing);
        return nullptr;
    }
    return packet;
}

}  // namespace tarvik
