#include "transport/cloud/cloud_carrier.h"

#include <utility>

#include "support/log.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/cloud_traffic.h"
#include "transport/life_cycle.h"

namespace tarvik {
namespace {

OsThread* Start(const CarrierThread& thread, const char* log_name) {
    OsThread* started = OsThreadStart(thread.entry, nullptr, thread.description);
    if (started != nullptr) {
        Log(kLogTrace, "[%s] Created Thread handle 0x%p (%s)", log_name, OsThreadHandle(started),
            thread.entry_name);
    }
    return started;
}

// False if the connection must end, or has ended while a callback of the application ran on this
// thread. The next connection, with its own receive thread, may then be up already.
bool ContinuesReceiving() {
    return cloud->receiver_id == OsCurrentThreadId() && !IsDisconnecting();
}

}  // namespace

bool StartCarrierThreads(const CarrierThreads& threads) {
    cloud->receive_thread = Start(threads.receive, threads.log_name);
    if (cloud->receive_thread == nullptr) {
        threads.LogFailure("RX");
        return false;
    }
    cloud->transmit_thread = Start(threads.transmit, threads.log_name);
    if (cloud->transmit_thread == nullptr) {
        threads.LogFailure("TX");
        return false;
    }
    return true;
}

void CloseCarrierThread(OsThread** thread, const char* log_name, const char* name) {
    LogAndCloseThread(std::exchange(*thread, nullptr), log_name, name);
}

void RunReceiver(bool (*receive)()) {
    std::uint32_t own = OsCurrentThreadId();
    cloud->receiver_id = own;
    while (ContinuesReceiving()) {
        if (!receive()) break;
    }
    cloud->receiver_id.compare_exchange_strong(own, 0);
}

void RunTransmitter(const PacketSender& sender, const char* log_name) {
    while (!IsDisconnecting()) {
        PacketPtr packet = NextCloudPacket();
        if (packet == nullptr) continue;
        const std::uint32_t error = sender.send(*packet);
        if (error == 0) continue;
        PutBackCloudPacket(std::move(packet));
        if (sender.LogFailure != nullptr) sender.LogFailure(error);
        break;
    }
    if (IsDisconnecting()) Log(kLogTrace, "[%s] not online anymore. exiting.", log_name);
}

}  // namespace tarvik
