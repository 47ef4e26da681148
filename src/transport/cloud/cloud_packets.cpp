#include "transport/cloud/cloud_packets.h"

#include <cstring>

#include "platform/user.h"
#include "transport/cloud/cloud_log.h"

namespace tarvik {
namespace {

constexpr char kVersion[] = "1.5.0.62-95aec0c";
constexpr std::uint32_t kUserNameCapacity = 257;

LoginWire OwnLogin() {
    char user[kUserNameCapacity];
    if (!OsUserName(user, sizeof user)) FormatText(user, sizeof user, "(unknown)");
    LoginWire login{};
    login.type = kTypeLogn;
    static_assert(sizeof kVersion <= sizeof login.firmware_version);
    std::memcpy(login.firmware_version, kVersion, sizeof kVersion);
    FormatText(login.device_name, sizeof login.device_name, "DPDU: %s", user);
    FormatText(login.build_time, sizeof login.build_time, "%s", __TIME__);
    FormatText(login.build_date, sizeof login.build_date, "%s", __DATE__);
    return login;
}

void Enqueue(PacketPtr packet) {
    if (packet != nullptr) EnqueueTransmitPacket(&cloud->queues, packet);
}

}  // namespace

void CloudSendLogin() {
    CloudLog("Login...\n");
    Enqueue(BuildPacket(OwnLogin()));
}

void SendAddress(const DeviceAddress& address) {
    AddressWire fields{};
    fields.type = kTypeAddr;
    static_assert(sizeof fields.mac == sizeof address);
    std::memcpy(fields.mac, address.data(), sizeof fields.mac);
    Enqueue(BuildPacket(fields));
}

}  // namespace tarvik
