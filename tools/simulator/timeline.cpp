#include "timeline.h"

#include <algorithm>

namespace brennix {

Timeline::Timeline(EventLoop* loop, const TimelineSetup* setup, Handlers handlers)
    : loop_(loop), setup_(setup), handlers_(std::move(handlers)) {}

void Timeline::Start() {
    if (running_) return;
    running_ = true;
    start_ = Clock::now();
    for (const TimelineEvent& event : setup_->events)
        pending_.push_back(&event);
    const auto is_later = [](const TimelineEvent* a, const TimelineEvent* b) {
        return a->at_ms > b->at_ms;
    };
    // The order of the file stands among events of the same time.
    std::reverse(pending_.begin(), pending_.end());
    std::stable_sort(pending_.begin(), pending_.end(), is_later);
    const auto changes_power = [](const TimelineEvent* event) { return event->ChangesPower(); };
    if (std::any_of(pending_.begin(), pending_.end(), changes_power)) SetPower({});
    ScheduleNext();
    ScheduleTelemetry();
}

void Timeline::Stop() {
    running_ = false;
    pending_.clear();
    loop_->Cancel(event_timer_);
    loop_->Cancel(telemetry_timer_);
}

void Timeline::Restart() {
    const bool was_running = running_;
    Stop();
    telemetry_number_ = 0;
    if (was_running) Start();
}

void Timeline::RestartTelemetry() {
    loop_->Cancel(telemetry_timer_);
    telemetry_number_ = 0;
    if (running_) ScheduleTelemetry();
}

void Timeline::ScheduleNext() {
    if (pending_.empty()) return;
    const Clock::time_point due = start_ + std::chrono::milliseconds(pending_.back()->at_ms);
    const auto left = std::max(due - Clock::now(), Clock::duration::zero());
    event_timer_ = loop_->After(std::chrono::ceil<std::chrono::milliseconds>(left), [this] {
        const TimelineEvent* event = pending_.back();
        pending_.pop_back();
        ScheduleNext();
        Happen(*event);
    });
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
