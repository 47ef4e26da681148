#include "vehicle/timeline.h"

#include <algorithm>

namespace brennix {

Timeline::Timeline(EventLoop* loop, const TimelineSetup* setup, Handlers handlers)
    : loop_(loop),
      setup_(setup),
      handlers_(std::move(handlers)),
      events_(loop, [this](const TimelineEvent& event) { Happen(event); }) {}

void Timeline::Start() {
    if (events_.IsRunning()) return;
    const auto changes_power = [](const TimelineEvent& event) { return event.ChangesPower(); };
    if (std::any_of(setup_->events.begin(), setup_->events.end(), changes_power)) SetPower({});
    events_.Start(setup_->events);
    ScheduleTelemetry();
}

void Timeline::Stop() {
    events_.Stop();
    loop_->Cancel(telemetry_timer_);
}

void Timeline::Restart() {
    const bool was_running = events_.IsRunning();
    Stop();
    telemetry_number_ = 0;
    if (was_running) Start();
}

void Timeline::RestartTelemetry() {
    loop_->Cancel(telemetry_timer_);
    telemetry_number_ = 0;
    if (events_.IsRunning()) ScheduleTelemetry();
}

void Timeline::Happen(const TimelineEvent& event) {
    if (event.ChangesPower()) {
        SetPower({event.battery_mv.value_or(power_.battery_mv),
                  event.ignition.value_or(power_.ignition)});
    }
    if (!event.packet.empty()) handlers_.send(event.packet);
}

void Timeline::SetPower(const Power& power) {
    if (power == power_) return;
    power_ = power;
    handlers_.power_changed(power_);
}

void Timeline::ScheduleTelemetry() {
    if (setup_->telemetry.period_ms == 0) return;
    telemetry_timer_ = loop_->After(std::chrono::milliseconds(setup_->telemetry.period_ms), [this] {
        ScheduleTelemetry();
        SendTelemetry();
    });
}

void Timeline::SendTelemetry() {
    const std::vector<std::string>& texts = setup_->telemetry.texts;
    const std::string text =
        texts.empty() ? handlers_.own_telemetry() : texts[telemetry_number_ % texts.size()];
    ++telemetry_number_;
    handlers_.send(MakePacket(type::kTele, Bytes(text.begin(), text.end())));
}

}  // namespace brennix
