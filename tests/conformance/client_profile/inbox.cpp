#include "conformance/client_profile/inbox.h"

#include <algorithm>

#include "conformance/framework/items.h"
#include "conformance/framework/waiting.h"

namespace conformance {

void Inbox::Drain(const CallbackCall& call) {
    PDU_EVENT_ITEM* item = nullptr;
    while (Pdu().PDUGetEventItem(call.hMod, call.hCLL, &item) == PDU_STATUS_NOERROR) {
        Take(item);
        const bool destroyed =
            Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item)) == PDU_STATUS_NOERROR;
        const std::lock_guard hold(lock_);
        ++taken_;
        if (destroyed) ++given_back_;
    }
}

void Inbox::Take(PDU_EVENT_ITEM* item) {
    const std::lock_guard hold(lock_);
    if (item->hCop != PDU_HANDLE_UNDEF) {
        outcomes_[item->hCop].Add(*item);
    } else if (item->ItemType == PDU_IT_STATUS) {
        link_states_.push_back(StatusOf(*item));
    }
}

Outcome Inbox::WaitFor(UNUM32 hCoP) {
    Outcome outcome;
    Eventually([&] {
        const std::lock_guard hold(lock_);
        outcome = outcomes_[hCoP];
        return outcome.IsFinal();
    });
    outcome.hCoP = hCoP;
    return outcome;
}

bool Inbox::WaitForResults(UNUM32 hCoP, std::size_t count) {
    return Eventually([&] {
        const std::lock_guard hold(lock_);
        return outcomes_[hCoP].results.size() >= count;
    });
}

bool Inbox::WaitForLinkState(UNUM32 state) {
    return Eventually([&] {
        const std::lock_guard hold(lock_);
        const auto found = std::find(link_states_.begin(), link_states_.end(), state);
        if (found == link_states_.end()) return false;
        link_states_.clear();
        return true;
    });
}

std::size_t Inbox::ItemsTaken() const {
    const std::lock_guard hold(lock_);
    return taken_;
}

std::size_t Inbox::ItemsGivenBack() const {
    const std::lock_guard hold(lock_);
    return given_back_;
}

}  // namespace conformance
