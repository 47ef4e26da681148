#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "link/packet.h"
#include "link/packet_queue.h"
#include "platform/lock.h"
#include "platform/thread.h"
#include "transport/ble/ble_radio.h"

namespace tarvik {

struct BleQueueSet;

// The connection to one dongle. Each of its threads has a share of it, so that a thread that blocks
// inside the radio keeps what it uses.
class BleConnection final : public BleDevice::Handler {
public:
    BleConnection(std::shared_ptr<BleRadio> radio, BleQueueSet* set);
    ~BleConnection();  // disconnects
    BleConnection(const BleConnection&) = delete;
    BleConnection& operator=(const BleConnection&) = delete;

    std::uint64_t address() const { return address_; }
    DeviceQueues* queues() const { return queues_; }
    bool running() const { return running_; }
    bool lost() const { return lost_; }

    // Initializes the queues and becomes their owner, until Close or until another connection takes
    // them. Called under BleCriticalSection.
    void TakeQueues();
    // Opens the dongle and subscribes to its notifications. False: it failed, which has been
    // logged.
    bool Establish();
    // Starts the threads; each takes a share of `self`, which is this connection. False: it failed,
    // which has been logged.
    bool Run(const std::shared_ptr<BleConnection>& self);
    // Opens the queues to their users, after the connection is listed. False: it was lost
    // meanwhile.
    bool SetReady();

    // Closes the queues to their users and ends the threads. The connection disconnects when its
    // last share is released, usually the caller's after this call.
    void Close();

    void Notified(std::span<const std::uint8_t> value) noexcept override;
    void NotificationFailed(const BleError& error) noexcept override;
    void Lost() noexcept override;

private:
    bool Open();
    bool FindService();
    bool FindCharacteristic();
    bool EnableNotifications();
    void Receive(std::span<const std::uint8_t> value);
    void PassOn(PacketPtr packet);
    void Send(const Packet& packet);
    BleStatus Write(const Packet& packet);
    void TransmitWhileRunning();
    bool StartThreads(const std::shared_ptr<BleConnection>& self);
    void StopThreads();  // under stop_lock_
    void ReleaseQueues();
    // Thread entries; the argument is a share of the connection.
    static void BleRxThreadFunc(void* argument);
    static void BleTxThreadFunc(void* argument);

    const std::shared_ptr<BleRadio> radio_;
    BleQueueSet* const set_;  // never released
    const std::uint64_t address_;
    DeviceQueues* const queues_;  // in the set
    std::unique_ptr<BleDevice> device_;

    OsLock stop_lock_;                  // taken before a queue's lock
    OsCondition stopped_;               // woken when `running_` is cleared
    std::atomic<bool> running_{false};  // cleared to end the threads
    std::atomic<bool> ready_{false};    // complete and listed
    std::atomic<bool> lost_{false};     // the next scan closes it

    OsLock receive_lock_;  // one notification at a time; taken before a queue's lock
    OsThread* receive_thread_ = nullptr;
    OsThread* transmit_thread_ = nullptr;
};

}  // namespace tarvik
