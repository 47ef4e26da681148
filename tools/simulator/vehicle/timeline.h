// What the dongle does unasked: scripted values and packets at times after the host's SYNC, and
// periodic telemetry.

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "process/timed_list.h"
#include "protocol/wire.h"

namespace brennix {

struct Power {
    std::uint32_t battery_mv = 13'800;
    bool ignition = true;

    bool operator==(const Power&) const = default;
};

// All fields that are present take effect at that time.
struct TimelineEvent {
    std::uint32_t at_ms = 0;
    std::optional<std::uint32_t> battery_mv;
    std::optional<bool> ignition;
    Bytes packet;

    bool ChangesPower() const { return battery_mv || ignition; }
};

struct TelemetrySetup {
    std::uint32_t period_ms = 0;     // 0: none
    std::vector<std::string> texts;  // one after the other; none: the dongle's own
};

struct TimelineSetup {
    std::vector<TimelineEvent> events;  // in any order
    TelemetrySetup telemetry;
};

class Timeline {
public:
    struct Handlers {
        std::function<void(ByteSpan)> send;
        std::function<void(const Power&)> power_changed;
        std::function<std::string()> own_telemetry;
    };

    // `setup` belongs to the dongle and outlives this object. Call Restart after changing it.
    Timeline(EventLoop* loop, const TimelineSetup* setup, Handlers handlers);
    ~Timeline() { Stop(); }
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    void Start();  // no effect while it runs
    void Stop();   // values stay as they are
    void Restart();
    // Applies a changed telemetry set-up; the events continue.
    void RestartTelemetry();

    const Power& CurrentPower() const { return power_; }
    void SetPower(const Power& power);
    void SendTelemetry();

private:
    void Happen(const TimelineEvent& event);
    void ScheduleTelemetry();

    EventLoop* loop_;
    const TimelineSetup* setup_;
    Handlers handlers_;
    Power power_;
    TimedList<TimelineEvent> events_;
    EventLoop::TimerId telemetry_timer_;
    std::uint64_t telemetry_number_ = 0;
};

}  // namespace brennix
