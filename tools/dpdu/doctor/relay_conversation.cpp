#include "doctor/relay_conversation.h"

#include <utility>

#include "link/fragmentation.h"
#include "link/wire_packets.h"
#include "platform/tick.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/cloud_packets.h"
#include "transport/cloud/secure_channel.h"
#include "transport/identification.h"

namespace dpdu {
namespace {

// As the library's scan: for the first login it waits twice as long.
constexpr std::uint32_t kLoginMs = 500;
constexpr std::uint64_t kLoginsMs = 3000;
constexpr std::size_t kMostDongles = 256;  // as many as the library lists

}  // namespace

RelayConversation::RelayConversation(std::unique_ptr<RelayLink> link, const std::atomic<bool>& stop)
    : link_(std::move(link)), stop_(stop) {
    tarvik::FragInit();
    tarvik::CloudSecClearSession();
    tarvik::InitializeQueue(&queues_.rx);
    tarvik::InitializeQueue(&queues_.tx);
    queues_.mtu = tarvik::kCloudMtu;
    queues_.available = true;
    receiver_ = std::thread([this] { Receive(); });
    transmitter_ = std::thread([this] { Transmit(); });
}

RelayConversation::~RelayConversation() {
    is_ending_ = true;
    link_->Abort();
    tarvik::WakeQueueWaiters(&queues_.tx);
    receiver_.join();
    transmitter_.join();
    tarvik::FreeQueue(&queues_.rx);
    tarvik::FreeQueue(&queues_.tx);
    tarvik::FragForget(&queues_);
    tarvik::CloudSecClearSession();
}

bool RelayConversation::ExchangesKeys() { return tarvik::CloudSecHandshake(&queues_, &stop_); }

bool RelayConversation::Identifies(std::uint32_t* status) {
    return tarvik::CloudSecIdentify(&queues_, status, &stop_);
}

// Logins that keep coming do not prolong it without limit.
std::vector<std::string> RelayConversation::Dongles() {
    if (tarvik::PacketPtr own = tarvik::MakeCloudLogin()) {
        tarvik::EnqueueTransmitPacket(&queues_, own);
    }
    tarvik::SendIdentify(&queues_);
    std::vector<std::string> dongles;
    std::uint32_t limit_ms = 2 * kLoginMs;
    const std::uint64_t end = tarvik::TickMs() + kLoginsMs;
    while (tarvik::TickMs() < end && dongles.size() < kMostDongles) {
        const tarvik::PacketPtr login =
            tarvik::WaitForLogin(&queues_, limit_ms, &stop_, &queues_.available);
        if (!login || login->type != tarvik::kTypeLogn) break;
        dongles.emplace_back(tarvik::LoginText(tarvik::LoginFromPacket(*login)).text);
        limit_ms = kLoginMs;
    }
    return dongles;
}

void RelayConversation::Receive() {
    tarvik::PacketPtr packet;
    while (!is_ending_ && link_->Receive(&packet)) {
        if (packet) Take(std::move(packet));
    }
    queues_.available = false;  // nobody waits for what cannot come
    tarvik::WakeQueueWaiters(&queues_.rx);
}

void RelayConversation::Transmit() {
    while (!is_ending_) {
        tarvik::PacketPtr packet =
            tarvik::TakePacket(&queues_.tx, tarvik::GetCloudLimits().transmit_wait_ms);
        if (!packet) continue;
        packet = tarvik::CloudSecSeal(std::move(packet));
        if (!link_->Send(*packet)) return;
    }
}

void RelayConversation::Take(tarvik::PacketPtr packet) {
    const bool is_sealed = packet->type == tarvik::kTypeCryp;
    if (is_sealed && !tarvik::CloudSecOpen(&tarvik::cloud_session, packet)) return;
    tarvik::PacketPtr complete;
    if (!tarvik::FragReceivePacket(&queues_, packet, &complete)) return;
    if (complete->type == tarvik::kTypeNhs2) is_answered_ = true;
    if (complete->type == tarvik::kTypePing) {
        tarvik::AnswerPing(&queues_, complete);
    } else {
        tarvik::EnqueueReceivedPacket(&queues_, complete);
    }
}

}  // namespace dpdu
