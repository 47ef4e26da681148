#include "transport/identification.h"

#include "link/fragmentation.h"
#include "link/packet.h"
#include "support/log.h"

namespace tarvik {

void SendIdentify(DeviceQueues* queues) {
    PacketPtr identify = MakePacket(kTypeIden, MIN_PKT_SIZE);
    if (identify != nullptr) EnqueueTransmitPacket(queues, identify);
}

PacketPtr WaitForLogin(DeviceQueues* queues, std::uint32_t timeout_ms,
                       const std::atomic<bool>* abort, const std::atomic<bool>* running) {
    return WaitForPacket(queues, kTypeLogn, timeout_ms, kNoTag, abort, running);
}

LoginText::LoginText(const LoginRecord& login) {
    const std::uint8_t* mac = login.Mac();
    FormatText(text, sizeof text, "'%s' with mac %02X:%02X:%02X:%02X:%02X:%02X",
               PrintableDeviceName(login).text, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

void ReportLogin(const Transport& transport, const Packet& login, DeviceQueues* queues,
                 ReportDevice report, void* context) {
    const DeviceReport record = {transport.id, LoginFromPacket(login), queues};
    ConsolePrint("[%s] %sUpdateDevices received: %s\r\n", transport.name, transport.name,
                 LoginText(record.login).text);
    report(context, record);
}

void AnswerPing(DeviceQueues* queues, PacketPtr& ping) {
    if (!HasRoomForAnswers(&queues->tx)) return;
    ping->type = kTypeRepl;
    FragSendPacket(queues, ping);
}

}  // namespace tarvik
