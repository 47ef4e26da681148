#include "transport/cloud/cloud_packets.h"

#include <cstring>

#include "platform/user.h"
#include "transport/cloud/cloud_log.h"

namespace tarvik {
namespace {

constexpr char kVersion[] = "1.5.0.62-95aec0c";
constexpr std::size_t kVersionSize = sizeof kVersion - 1;
static_assert(kVersionSize == 16);

constexpr std::uint32_t kUserNameCapacity = 257;
constexpr std::size_t kNameSize = 32;
constexpr std::size_t kTextSize = 16;

void FillLogin(Packet* packet) {
    char user[kUserNameCapacity];
    if (!OsUserName(user, sizeof user)) FormatText(user, sizeof user, "(unknown)");
    auto* const texts = reinterpret_cast<char*>(packet->Bytes());
    std::memcpy(texts + 32, kVersion, kVersionSize);
    FormatText(texts + 64, kNameSize, "DPDU: %s", user);
    FormatText(texts + 96, kTextSize, "%s", __TIME__);
    FormatText(texts + 112, kTextSize, "%s", __DATE__);
}

}  // namespace

void CloudSendLogin() {
    CloudLog("Login...\n");
    PacketPtr packet = MakePacket(kTypeLogn, kLoginSize);
    if (packet == nullptr) return;
    FillLogin(packet.get());
    EnqueueTransmitPacket(&cloud->queues, packet);
}

void SendIdentify() {
    PacketPtr packet = MakePacket(kTypeIden, MIN_PKT_SIZE);
    if (packet != nullptr) EnqueueTransmitPacket(&cloud->queues, packet);
}

void SendAddress(const DeviceAddress& address) {
    PacketPtr packet = MakePacket(kTypeAddr, 16);
    if (packet == nullptr) return;
    packet->SetU32(8, address.first);
    packet->SetU16(12, address.last);
    EnqueueTransmitPacket(&cloud->queues, packet);
}

}  // namespace tarvik
