#include "transport/cloud/cloud_packets.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "platform/user.h"
#include "transport/cloud/cloud_log.h"

namespace tarvik {
namespace {

constexpr char kVersion[] = "1.5.0.62-95aec0c";
constexpr std::uint32_t kUserNameCapacity = 256 * 3 + 1;  // 256 UTF-16 characters in UTF-8

bool ContinuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Like FormatText, but text that does not fit is cut before a character of UTF-8, not inside it.
template <std::size_t Size>
void PutName(char (&field)[Size], const char* user) {
    char text[kUserNameCapacity + 16];
    FormatText(text, sizeof text, "DPDU: %s", user);
    std::size_t length = std::min(std::strlen(text), Size - 1);
    while (ContinuesCharacter(text[length]))
        --length;
    std::memcpy(field, text, length);
    field[length] = '\0';
}

LoginWire OwnLogin() {
    char user[kUserNameCapacity];
    if (!OsUserName(user, sizeof user)) FormatText(user, sizeof user, "(unknown)");
    LoginWire login{};
    login.type = kTypeLogn;
    static_assert(sizeof kVersion <= sizeof login.firmware_version);
    std::memcpy(login.firmware_version, kVersion, sizeof kVersion);
    PutName(login.device_name, user);
    FormatText(login.build_time, sizeof login.build_time, "%s", __TIME__);
    FormatText(login.build_date, sizeof login.build_date, "%s", __DATE__);
    return login;
}

void Enqueue(PacketPtr packet) {
    if (packet != nullptr) EnqueueTransmitPacket(&cloud->queues, packet);
}

}  // namespace

PacketPtr MakeCloudLogin() { return BuildPacket(OwnLogin()); }

void CloudSendLogin() {
    CloudLog("Login...\n");
    Enqueue(MakeCloudLogin());
}

void SendAddress(const DeviceAddress& address) {
    AddressWire fields{};
    fields.type = kTypeAddr;
    static_assert(sizeof fields.mac == sizeof address);
    std::memcpy(fields.mac, address.data(), sizeof fields.mac);
    Enqueue(BuildPacket(fields));
}

}  // namespace tarvik
