#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"
#include "transport/transport.h"

// What every transport does to learn which dongle it has reached: send IDEN, wait for LOGN, report
// it. And the answer to the dongle's own question, PING.
namespace tarvik {

void SendIdentify(DeviceQueues* queues);

// The next LOGN. Null: none came in time, or one of the flags ended the wait (see WaitForPacket).
PacketPtr WaitForLogin(DeviceQueues* queues, std::uint32_t timeout_ms,
                       const std::atomic<bool>* abort, const std::atomic<bool>* running);

// "'NAME' with mac A0:B1:C2:D3:E4:F5", as consoles and logs show a dongle. Control characters of
// the name are '.'.
struct LoginText {
    explicit LoginText(const LoginRecord& login);
    char text[64];
};

// Prints the login on the console and reports it.
void ReportLogin(const Transport& transport, const Packet& login, DeviceQueues* queues,
                 ReportDevice report, void* context);

// Sends a PING back as REPL, payload unchanged, in fragments if it is longer than the transport
// carries whole. Does not if the dongle has left too many packets in the queue.
void AnswerPing(DeviceQueues* queues, PacketPtr& ping);

}  // namespace tarvik
