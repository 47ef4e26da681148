#include "transport/cloud/secure_channel_answer.h"

#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/cloud_log.h"

namespace tarvik {
namespace {

// From the most significant byte down.
char Letter(std::uint32_t type, unsigned index) {
    return static_cast<char>(type >> (24 - 8 * index) & 0xFF);
}

}  // namespace

PacketPtr WaitForAnswer(DeviceQueues* queues, const ExpectedAnswer& expected,
                        const std::atomic<bool>* abort) {
    PacketPtr packet =
        WaitForPacket(queues, expected.type, GetCloudLimits().answer_ms, kNoTag, abort);
    if (packet != nullptr && packet->type != expected.type) {
        const std::uint32_t type = packet->type;
        CloudLog("[CloudSec] [E] %s: %c%c%c%c\n", expected.unexpected, Letter(type, 0),
                 Letter(type, 1), Letter(type, 2), Letter(type, 3));
        return nullptr;
    }
    if (packet == nullptr || packet->length < expected.shortest) {
        CloudLog("%s", expected.missing);
        return nullptr;
    }
    return packet;
}

}  // namespace tarvik
