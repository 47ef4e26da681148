#include "conformance/framework/callbacks.h"

#include <array>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

struct Slot {
    bool taken = false;
    std::vector<CallbackCall> calls;
    std::function<void(const CallbackCall&)> action;
};

std::mutex lock;
std::array<Slot, 4> slots;

template <std::size_t kSlot>
void PDU_CALL Callback(T_PDU_EVT_DATA event_type, UNUM32 hMod, UNUM32 hCLL, void* cll_tag,
                       void* api_tag) {
    const CallbackCall call = {event_type, hMod, hCLL, cll_tag, api_tag};
    std::function<void(const CallbackCall&)> action;
    {
        const std::lock_guard hold(lock);
        slots[kSlot].calls.push_back(call);
        action = slots[kSlot].action;
    }
    if (action) action(call);
}

constexpr std::array<CALLBACKFNC, 4> kFunctions = {Callback<0>, Callback<1>, Callback<2>,
                                                   Callback<3>};

}  // namespace

CallbackSpy::CallbackSpy() {
    const std::lock_guard hold(lock);
    for (slot_ = 0; slots[slot_].taken;) {
        if (++slot_ == slots.size()) std::abort();  // more at once than slots
    }
    slots[slot_] = {true, {}, nullptr};
}

CallbackSpy::~CallbackSpy() {
    const std::lock_guard hold(lock);
    slots[slot_] = {};
}

CALLBACKFNC CallbackSpy::Function() const { return kFunctions[slot_]; }

void CallbackSpy::OnCall(std::function<void(const CallbackCall&)> action) {
    const std::lock_guard hold(lock);
    slots[slot_].action = std::move(action);
}

std::vector<CallbackCall> CallbackSpy::Calls() const {
    const std::lock_guard hold(lock);
    return slots[slot_].calls;
}

bool CallbackSpy::WaitForCalls(std::size_t count) const {
    return Eventually([&] { return Count() >= count; });
}

}  // namespace conformance
