#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <vector>

#include "conformance/framework/callbacks.h"
#include "conformance/framework/link.h"

namespace conformance {

// The events that a client takes out of the queues inside its callback, on the library's thread.
class Inbox {
public:
    // Empties the queue of the callback's handles until the library reports no more items, and
    // destroys every item.
    void Drain(const CallbackCall& call);

    // The events of this ComPrimitive once it is finished or cancelled. Without a final state if
    // that does not happen.
    Outcome WaitFor(UNUM32 hCoP);
    // True once this ComPrimitive has this many results, finished or not.
    bool WaitForResults(UNUM32 hCoP, std::size_t count);
    // True once the link has reported this state; forgets the states reported before.
    bool WaitForLinkState(UNUM32 state);

    std::size_t ItemsTaken() const;
    // How many of these the library has destroyed.
    std::size_t ItemsGivenBack() const;

private:
    void Take(PDU_EVENT_ITEM* item);

    mutable std::mutex lock_;
    std::map<UNUM32, Outcome> outcomes_;  // guarded by lock_, as is all below
    std::vector<UNUM32> link_states_;
    std::size_t taken_ = 0;
    std::size_t given_back_ = 0;
};

}  // namespace conformance
