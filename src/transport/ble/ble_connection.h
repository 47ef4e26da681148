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

// One dongle, from the attempt to connect it to its end. Its threads have a share of it each, so
// that one that is held up inside the radio keeps what it uses.
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

    // Under BleCriticalSection. The queues are initialised, and this connection's until its end, or
    // until another one takes them.
    void TakeQueues();
    // Opens the dongle and subscribes to what it sends. False: what went wrong has been logged.
    bool Establish();
    // Starts the threads. `self` is this connection, of which each thread takes a share. False: as
    // above.
    bool Run(const std::shared_ptr<BleConnection>& self);
    // The record is listed: the queues now reach the dongle. False: it has gone meanwhile.
    bool SetReady();

    // Takes the dongle away from those who use its queues, and ends the threads. Disconnects when
    // the last share of the connection goes: as a rule the caller's, after this.
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
    // The entries of the threads; the argument is a share of their connection.
    static void BleRxThreadFunc(void* argument);
    static void BleTxThreadFunc(void* argument);

    const std::shared_ptr<BleRadio> radio_;
    BleQueueSet* const set_;  // lives as long as the library
    const std::uint64_t address_;
    DeviceQueues* const queues_;  // of the set
    std::unique_ptr<BleDevice> device_;

    OsLock stop_lock_;                  // comes before a queue's lock
    OsCondition stopped_;               // woken when `running_` is cleared
    std::atomic<bool> running_{false};  // its threads run
    std::atomic<bool> ready_{false};    // complete and listed
    std::atomic<bool> lost_{false};     // the dongle has gone; the next scan clears up

    OsLock receive_lock_;  // one notification at a time; comes before a queue's lock
    OsThread* receive_thread_ = nullptr;
    OsThread* transmit_thread_ = nullptr;
};

}  // namespace tarvik
