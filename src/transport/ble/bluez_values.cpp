#include "transport/ble/bluez_values.h"

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "platform/tick.h"

namespace tarvik {
namespace {

class Gate {
public:
    bool Enter() {
        const LockGuard hold(lock_);
        if (!shut_) ++inside_;
        return !shut_;
    }

    void Leave() {
        const LockGuard hold(lock_);
        if (--inside_ == 0) left_.WakeAll();
    }

    void Shut() {
        constexpr std::uint32_t kPatienceMs = 1'000;
        const std::uint64_t deadline = TickMs() + kPatienceMs;
        const LockGuard hold(lock_);
        shut_ = true;
        for (std::uint64_t now = TickMs(); inside_ > 0 && now < deadline; now = TickMs())
            left_.Wait(lock_, static_cast<std::int32_t>(deadline - now));
    }

private:
    OsLock lock_;
    OsCondition left_;
    int inside_ = 0;     // guarded by lock_
    bool shut_ = false;  // guarded by lock_
};

Immortal<Gate> gate;

struct ShutsAtExit {
    ~ShutsAtExit() {
        if (!OsIsForked()) gate->Shut();
    }
};

}  // namespace

// What is constructed last is destroyed first: the gate is shut when the connection goes. A bus may
// be connected after that too.
void BusValues::Prepare() {
    const BusValues values;
    const sdbus::Variant makes_the_connection(true);
    static const ShutsAtExit shuts_at_exit;
}

BusValues::BusValues() {
    if (!gate->Enter()) throw sdbus::Error(kEnding, "the process is ending");
}

BusValues::~BusValues() { gate->Leave(); }

}  // namespace tarvik
