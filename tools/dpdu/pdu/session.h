// A library in use: constructed, with its event callback registered; always destructed in the end.

#ifndef TOOLS_DPDU_PDU_SESSION_H
#define TOOLS_DPDU_PDU_SESSION_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "pdu/functions.h"

namespace dpdu {

// Raised by the library's threads; ours wait for it.
class EventSignal {
public:
    void Raise();
    // True if it was raised since the last call; false on time-out.
    bool Wait(std::chrono::milliseconds limit);

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool raised_ = false;  // guarded by lock_
};

// The longest time until an interruption by the user is noticed.
inline constexpr std::chrono::milliseconds kInterruptionPoll{100};

class Session {
public:
    // Constructs the library with the option string; an empty one is passed as null. Throws
    // Failure.
    Session(const pdu::Functions& functions, std::string option_string);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const pdu::Functions& Functions() const { return functions_; }

    // The id of an object; nullopt if the library does not know the name.
    std::optional<UNUM32> FindObject(T_PDU_OBJT type, const std::string& name) const;
    // As above, but throws Failure for an unknown name.
    UNUM32 RequireObject(T_PDU_OBJT type, const std::string& name) const;

    // The callback to register for this session's queues; it wakes WaitForEvent.
    static CALLBACKFNC Callback();

    // Waits until the library reports an event or a short time has passed. Throws Failure if the
    // user has interrupted the program.
    void WaitForEvent();
    // As above, but ignores interruptions.
    void PauseForEvent(std::chrono::milliseconds limit = kInterruptionPoll);

    // Takes one item from a queue, passes it to `look` and destroys it. False if the queue is
    // empty.
    bool TakeEvent(UNUM32 module, UNUM32 link,
                   const std::function<void(const PDU_EVENT_ITEM&)>& look);
    // Takes every item from a queue, passes it to `look` and destroys it.
    void DrainQueue(UNUM32 module, UNUM32 link,
                    const std::function<void(const PDU_EVENT_ITEM&)>& look);
    // Empties a queue without looking at its items.
    void DiscardQueue(UNUM32 module, UNUM32 link);

private:
    pdu::Functions functions_;
    std::string option_string_;  // some libraries keep the pointer
    EventSignal signal_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_SESSION_H
