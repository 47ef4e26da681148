#include "transport/ble/bluez_opening.h"

#include <utility>

#include "platform/tick.h"
#include "transport/ble/ble_share.h"

namespace tarvik {

std::shared_ptr<BluezOpening> BluezOpening::Begin() {
    auto opening = MakeBleShared<BluezOpening>();
    opening->thread_ = StartBleThread(Run, opening, "Tarvik BleBusOpening");
    if (opening->thread_ == nullptr)
        throw BleError("the thread that connects the message bus cannot be started");
    return opening;
}

BluezOpening::~BluezOpening() {
    if (thread_ != nullptr) OsThreadClose(thread_);
}

void BluezOpening::Run(void* share) {
    const auto opening = TakeBleShare<BluezOpening>(share);
    std::shared_ptr<BluezBus> bus;
    std::optional<BleErrorText> error;
    try {
        bus = BluezBus::Connect();
    } catch (...) {
        error.emplace();
    }
    const LockGuard hold(opening->lock_);
    opening->bus_ = std::move(bus);
    opening->error_ = error;
    opening->over_ = true;
    opening->changed_.WakeAll();
}

bool BluezOpening::AwaitEnd(std::uint32_t limit_ms) {
    const std::uint64_t deadline = TickMs() + limit_ms;
    const LockGuard hold(lock_);
    for (;;) {
        if (over_) return true;
        const std::uint64_t now = TickMs();
        if (now >= deadline) return false;
        changed_.Wait(lock_, static_cast<std::int32_t>(deadline - now));
    }
}

std::shared_ptr<BluezBus> BluezOpening::Await(std::uint32_t limit_ms) {
    if (!AwaitEnd(limit_ms)) return nullptr;
    EndBleThread(&thread_, -1);
    if (bus_ == nullptr) throw BleError(error_->text);
    return std::move(bus_);
}

}  // namespace tarvik
