#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "conformance/framework/library.h"

namespace conformance {

struct CallbackCall {
    UNUM32 event_type;
    UNUM32 hMod;
    UNUM32 hCLL;
    void* cll_tag;
    void* api_tag;
};

// A callback that records its calls. There are four, because only the address distinguishes
// callbacks; each belongs to one instance at a time.
class CallbackSpy {
public:
    CallbackSpy();
    // It is no longer registered: the test has deregistered it, or the link is gone.
    ~CallbackSpy();
    CallbackSpy(const CallbackSpy&) = delete;
    CallbackSpy& operator=(const CallbackSpy&) = delete;

    CALLBACKFNC Function() const;

    // Runs inside each call, on the library's thread, after the call is recorded. Set it before
    // registering the callback.
    void OnCall(std::function<void(const CallbackCall&)> action);

    std::vector<CallbackCall> Calls() const;
    std::size_t Count() const { return Calls().size(); }
    // False: fewer came in time.
    bool WaitForCalls(std::size_t count) const;

private:
    std::size_t slot_;
};

}  // namespace conformance
