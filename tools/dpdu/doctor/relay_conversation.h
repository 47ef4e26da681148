// What the library says to the relay, over one connection: key exchange, identification, login.

#ifndef TOOLS_DPDU_DOCTOR_RELAY_CONVERSATION_H
#define TOOLS_DPDU_DOCTOR_RELAY_CONVERSATION_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "doctor/relay_link.h"
#include "link/packet_queue.h"

namespace dpdu {

// One at a time: the secure channel is the process's. Needs its identity.
class RelayConversation {
public:
    RelayConversation(std::unique_ptr<RelayLink> link, const std::atomic<bool>& stop);
    ~RelayConversation();
    RelayConversation(const RelayConversation&) = delete;
    RelayConversation& operator=(const RelayConversation&) = delete;

    // In this order. False: no valid answer, or `stop` was set.
    bool ExchangesKeys();
    bool Identifies(std::uint32_t* status);
    // Logs in and asks for dongles: "'NAME' with mac A0:B1:C2:D3:E4:F5" each.
    std::vector<std::string> Dongles();

    // Whether there was an answer to the key exchange, valid or not.
    bool WasAnswered() const { return is_answered_; }

private:
    void Receive();
    void Transmit();
    void Take(tarvik::PacketPtr packet);

    const std::unique_ptr<RelayLink> link_;
    const std::atomic<bool>& stop_;
    tarvik::DeviceQueues queues_;
    std::atomic<bool> is_ending_{false};
    std::atomic<bool> is_answered_{false};
    std::thread receiver_;
    std::thread transmitter_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_RELAY_CONVERSATION_H
