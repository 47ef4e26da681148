#include "transport/ble/ble_connection.h"

#include <utility>

#include "link/fragmentation.h"
#include "support/log.h"
#include "transport/ble/ble_limits.h"
#include "transport/ble/ble_share.h"
#include "transport/ble/ble_state.h"
#include "transport/ble/ble_text.h"

namespace tarvik {
namespace {

constexpr BleUuid kService = {0x59, 0x46, 0x2f, 0x12, 0x95, 0x43, 0x99, 0x99,
                              0x12, 0xc8, 0x58, 0xb4, 0x59, 0xa2, 0x71, 0xff};
constexpr BleUuid kCharacteristic = {0x34, 0xa2, 0x42, 0xa7, 0x5b, 0xc9, 0x45, 0xd3,
                                     0x92, 0xe4, 0xaf, 0x6f, 0x91, 0x38, 0xff, 0x00};

// Prints and logs why a step of connecting failed. Returns false.
bool FailStep(const char* why) {
    ConsolePrint("  ERROR: %s\n", why);
    Log(kLogTrace, "[BLE] %s", why);
    return false;
}
bool FailStep(const char* why, BleStatus status) {
    ConsolePrint("  ERROR: %s (status: %d)\n", why, static_cast<int>(status));
    Log(kLogTrace, "[BLE] %s", why);
    return false;
}

}  // namespace

BleConnection::BleConnection(std::shared_ptr<BleRadio> radio, BleQueueSet* set)
    : radio_(std::move(radio)), set_(set), address_(set->address), queues_(&set->queues) {}

BleConnection::~BleConnection() {
    if (device_ == nullptr) return;
    try {
        const BleRadioThread inside(*radio_);
        device_.reset();
    } catch (...) {
        Log(kLogTrace, "[BLE] Connection error: %s", BleErrorText().text);
    }
}

// ---------------------------------------------------------------- connecting

void BleConnection::TakeQueues() {
    set_->owner = this;
    InitializeQueue(&queues_->rx);
    InitializeQueue(&queues_->tx);
    queues_->mtu = kBleMtu;
}

bool BleConnection::Open() {
    ConsolePrint("  Connecting to BLE device...\n");
    device_ = radio_->Open(address_);
    return device_ != nullptr || FailStep("Failed to connect to device");
}

bool BleConnection::FindService() {
    ConsolePrint("  Getting GATT services...\n");
    const BleStatus status = device_->DiscoverServices();
    if (status != BleStatus::kSuccess) return FailStep("Failed to get GATT services", status);
    ConsolePrint("  Searching for target service...\n");
    if (!device_->SelectService(kService)) return FailStep("Target service not found");
    ConsolePrint("  Target service found\n");
    return true;
}

bool BleConnection::FindCharacteristic() {
    ConsolePrint("  Getting characteristics...\n");
    const BleStatus status = device_->DiscoverCharacteristics();
    if (status != BleStatus::kSuccess) return FailStep("Failed to get characteristics", status);
    if (!device_->SelectCharacteristic(kCharacteristic)) {
        return FailStep("Target characteristic not found");
    }
    ConsolePrint("  Target characteristic found\n");
    Log(kLogTrace, "[BLE] Found target characteristic");
    return true;
}

bool BleConnection::EnableNotifications() {
    const BleStatus status = device_->Subscribe(*this);
    if (status != BleStatus::kSuccess) return FailStep("Failed to enable notifications", status);
    ConsolePrint("  Notifications enabled\n");
    Log(kLogTrace, "[BLE] Notifications enabled");
    return true;
}

bool BleConnection::Establish() {
    return Open() && FindService() && FindCharacteristic() && EnableNotifications();
}

bool BleConnection::Run(const std::shared_ptr<BleConnection>& self) {
    ConsolePrint("  Starting TX/RX threads...\n");
    running_ = true;
    return StartThreads(self);
}

bool BleConnection::StartThreads(const std::shared_ptr<BleConnection>& self) {
    transmit_thread_ = StartBleThread(BleTxThreadFunc, self, "Tarvik BleTxThreadFunc");
    if (transmit_thread_ == nullptr) {
        Log(kLogTrace, "[BLE] Failed to create TX thread: %i", OsLastError());
        return false;
    }
    receive_thread_ = StartBleThread(BleRxThreadFunc, self, "Tarvik BleRxThreadFunc");
    if (receive_thread_ == nullptr) {
        Log(kLogTrace, "[BLE] Failed to create RX thread: %i", OsLastError());
        return false;
    }
    return true;
}

// A link that was open before the dongle was lost sends as soon as the queues are available, so
// they become available only when the dongle can be reached.
bool BleConnection::SetReady() {
    const LockGuard hold(stop_lock_);
    if (lost_) return false;
    queues_->available = true;
    ready_ = true;
    return true;
}

// ---------------------------------------------------------------- closing

void BleConnection::StopThreads() {
    running_ = false;
    WakeQueueWaiters(&queues_->tx);
    stopped_.WakeAll();
}

// Runs on a thread of the radio and must not wait: the next scan does the rest.
void BleConnection::Lost() noexcept {
    Log(kLogTrace, "[BLE] Connection to %s lost", BleAddressText(address_).text);
    const LockGuard hold(stop_lock_);
    lost_ = true;
    if (!ready_) return;
    queues_->available = false;
    WakeQueueWaiters(&queues_->rx);
    StopThreads();
}

void BleConnection::ReleaseQueues() {
    const LockGuard hold_owner(ble->BleCriticalSection);
    if (set_->owner != this) return;
    set_->owner = nullptr;
    {
        const LockGuard hold(stop_lock_);
        ready_ = false;
        queues_->available = false;
        StopThreads();
    }
    FreeQueue(&queues_->rx);
    FreeQueue(&queues_->tx);
    const LockGuard hold(receive_lock_);
    FragForget(queues_);
}

void BleConnection::Close() {
    ReleaseQueues();
    EndBleThread(&transmit_thread_, GetBleLimits().thread_end_ms);
    EndBleThread(&receive_thread_, GetBleLimits().thread_end_ms);
}

}  // namespace tarvik
