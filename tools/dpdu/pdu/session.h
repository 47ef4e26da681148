// A library in use: constructed, its event callback registered, its queues emptied; destructed on
// every way out.

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

// Set by the library's threads, waited for by ours.
class EventSignal {
public:
    void Raise();
    // True when it was raised since the last call; false when the time ran out.
    bool Wait(std::chrono::milliseconds limit);

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool raised_ = false;  // guarded by lock_
};

// The longest that an interruption by the user goes unnoticed.
inline constexpr std::chrono::milliseconds kInterruptionPoll{100};

class Session {
public:
    // Constructs the library with the option string, or with none when it is empty. Throws Failure.
    Session(const PduFunctions& functions, std::string option_string);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const PduFunctions& Functions() const { return functions_; }

    // The id of an object, or nothing when the library does not know the name.
    std::optional<UNUM32> FindObject(T_PDU_OBJT type, const std::string& name) const;
    // The same, but an unknown name throws Failure.
    UNUM32 RequireObject(T_PDU_OBJT type, const std::string& name) const;

    // The callback to register for a queue of this session; it wakes WaitForEvent.
    static CALLBACKFNC Callback();

    // Waits until the library has reported an event or a short time has passed. Throws Failure when
    // the user has interrupted the program.
    void WaitForEvent();
    // The same, whether interrupted or not.
    void PauseForEvent(std::chrono::milliseconds limit = kInterruptionPoll);

    // Takes one item out of a queue, shows it to `look` and hands it back to the library. False
    // when there is none.
    bool TakeEvent(UNUM32 module, UNUM32 link,
                   const std::function<void(const PDU_EVENT_ITEM&)>& look);
    // Takes every item out of a queue, shows it to `look` and hands it back to the library.
    void DrainQueue(UNUM32 module, UNUM32 link,
                    const std::function<void(const PDU_EVENT_ITEM&)>& look);
    // The same for items that are of no interest.
    void DiscardQueue(UNUM32 module, UNUM32 link);

private:
    PduFunctions functions_;
    std::string option_string_;  // some libraries keep the pointer
    EventSignal signal_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_SESSION_H
