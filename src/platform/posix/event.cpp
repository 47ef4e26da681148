#include "platform/event.h"

#include <new>

#include "platform/posix/monitor.h"

namespace tarvik {

// Where a thread that waits for either of two events sleeps; registered with both events meanwhile.
struct EitherWaiter {
    Monitor monitor;
    bool woken = false;  // guarded by monitor
};

// One registration of an EitherWaiter with one event.
struct EitherNode {
    EitherWaiter* waiter;
    EitherNode* next = nullptr;
};

struct OsEvent {
    Monitor monitor;
    EventReset reset = EventReset::kManual;
    bool set = false;               // guarded by monitor
    EitherNode* waiters = nullptr;  // guarded by monitor
};

namespace {

// Registers for the length of a scope. Once the destructor has the event's monitor no setter can
// still be using the waiter.
class Registration {
public:
    Registration(OsEvent* event, EitherWaiter* waiter) : event_(event), node_{waiter} {
        const MonitorGuard guard(event_->monitor);
        node_.next = event_->waiters;
        event_->waiters = &node_;
    }
    ~Registration() {
        const MonitorGuard guard(event_->monitor);
        EitherNode** link = &event_->waiters;
        while (*link != &node_)
            link = &(*link)->next;
        *link = node_.next;
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    OsEvent* event_;
    EitherNode node_;
};

void Wake(EitherWaiter* waiter) {
    const MonitorGuard guard(waiter->monitor);
    waiter->woken = true;
    waiter->monitor.WakeOne();
}

// The event's monitor is held.
bool TakeLocked(OsEvent* event) {
    if (!event->set) return false;
    if (event->reset == EventReset::kAuto) event->set = false;
    return true;
}

bool Take(OsEvent* event) {
    const MonitorGuard guard(event->monitor);
    return TakeLocked(event);
}

// False: the time ran out.
bool SleepUntilWoken(EitherWaiter* waiter, const Deadline& deadline) {
    MonitorGuard guard(waiter->monitor);
    while (!waiter->woken) {
        if (!guard.Sleep(deadline)) break;
    }
    const bool woken = waiter->woken;
    waiter->woken = false;
    return woken;
}

}  // namespace

OsEvent* OsEventCreate(EventReset reset) {
    auto* event = new (std::nothrow) OsEvent;
    if (event != nullptr) event->reset = reset;
    return event;
}

void OsEventSet(OsEvent* event) {
    const MonitorGuard guard(event->monitor);
    if (event->set) return;
    event->set = true;
    if (event->reset == EventReset::kManual) {
        event->monitor.WakeAll();
    } else {
        event->monitor.WakeOne();
    }
    for (EitherNode* node = event->waiters; node != nullptr; node = node->next)
        Wake(node->waiter);
}

void OsEventReset(OsEvent* event) {
    const MonitorGuard guard(event->monitor);
    event->set = false;
}

bool OsEventWait(OsEvent* event, std::int32_t timeout_ms) {
    const Deadline deadline(timeout_ms);
    MonitorGuard guard(event->monitor);
    while (!TakeLocked(event)) {
        if (timeout_ms == 0) return false;
        if (!guard.Sleep(deadline)) return TakeLocked(event);
    }
    return true;
}

int OsEventWaitEither(OsEvent* first, OsEvent* second, std::int32_t timeout_ms) {
    const Deadline deadline(timeout_ms);
    EitherWaiter waiter;
    const Registration with_first(first, &waiter);
    const Registration with_second(second, &waiter);
    for (;;) {
        if (Take(first)) return 0;
        if (Take(second)) return 1;
        if (!SleepUntilWoken(&waiter, deadline)) break;
    }
    if (Take(first)) return 0;
    return Take(second) ? 1 : -1;
}

void OsEventClose(OsEvent* event) { delete event; }

}  // namespace tarvik
