#include "transport/ble/bluez_values.h"

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>

#include "platform/immortal.h"
#include "platform/process.h"
#include "transport/ble/ble_gate.h"

namespace tarvik {
namespace {

constexpr std::int32_t kPatienceMs = 1'000;

Immortal<BleGate> gate;

struct ClosesAtExit {
    ~ClosesAtExit() {
        if (!OsIsForked()) gate->Close(kPatienceMs);
    }
};

}  // namespace

// What is constructed last is destroyed first: the gate is closed when the connection goes. A bus
// may be connected after that too.
void BusValues::Prepare() {
    const BusValues values;
    const sdbus::Variant makes_the_connection(true);
    static const ClosesAtExit closes_at_exit;
}

BusValues::BusValues() {
    if (!gate->Enter()) throw sdbus::Error(kEnding, "the process is ending");
}

BusValues::~BusValues() { gate->Leave(); }

}  // namespace tarvik
