#include "vehicle/raw_traffic.h"

#include <algorithm>

#include "protocol/layout.h"

namespace brennix {

namespace {

constexpr std::size_t kKeptFrames = 1000;
constexpr std::size_t kKeptIds = 4096;
constexpr std::uint32_t kBurstPart = 128;  // frames sent at once

Bytes ToBytes(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

RawFrame MakeNumberedFrame(std::uint32_t id, std::uint32_t number) {
    RawFrame frame = {id, Bytes(4, 0)};
    for (int shift = 24; shift >= 0; shift -= 8)
        frame.data.push_back(static_cast<std::uint8_t>((number >> shift) & 0xFF));
    return frame;
}

}  // namespace

RawFrame PeriodicFrame::Make(std::uint64_t number) const {
    RawFrame frame = {id, data[number % data.size()]};
    if (counter && *counter < frame.data.size()) {
        std::uint8_t& byte = frame.data[*counter];
        byte = static_cast<std::uint8_t>(byte + number);
    }
    return frame;
}

bool RawAnswer::Matches(const RawFrame& frame) const {
    return (frame.id & id_mask) == (id & id_mask) && data.Matches(frame.data);
}

RawTraffic::RawTraffic(EventLoop* loop, const RawSetup* setup, Handlers handlers)
    : loop_(loop),
      setup_(setup),
      handlers_(std::move(handlers)),
      sequence_(loop, [this](const TimedFrame& frame) { Send(frame.frame); }) {}

void RawTraffic::OnPacket(ByteSpan packet) {
    if (packet.size() != rawc::kSize) return;
    const std::size_t count = LoadU16(packet.data() + rawc::kCount);
    switch (LoadU16(packet.data() + rawc::kFlags)) {
        case kReceptionOn:
            return SwitchOn();
        case kReceptionOff:
            return SwitchOff();
        case kFrame:
            if (count > kMaxFrameBytes) return;
            return OnFrame(
                {LoadU32(packet.data() + rawc::kId), ToBytes(packet.subspan(rawc::kData, count))});
        default:
            return;
    }
}

void RawTraffic::SwitchOn() {
    const bool was_listened_to = IsListenedTo();
    listeners_ = setup_->counts_listeners ? listeners_ + 1 : 1;
    handlers_.note("raw reception on, listeners: " + std::to_string(listeners_));
    if (!was_listened_to) Start();
}

void RawTraffic::SwitchOff() {
    if (!IsListenedTo()) return handlers_.note("raw reception off, it was off already");
    listeners_ = setup_->counts_listeners ? listeners_ - 1 : 0;
    handlers_.note("raw reception off, listeners: " + std::to_string(listeners_));
    if (!IsListenedTo()) Stop();
}

void RawTraffic::Reset() {
    listeners_ = 0;
    Stop();
    sequence_.Stop();
}

void RawTraffic::Restart() {
    Stop();
    sequence_.Stop();
    if (IsListenedTo()) Start();
}

void RawTraffic::Start() {
    sequence_.Start(setup_->sequence);
    schedules_.resize(setup_->frames.size());
    for (std::size_t i = 0; i < schedules_.size(); ++i) {
        const PeriodicFrame& frame = setup_->frames[i];
        if (frame.period_ms == 0) continue;
        const std::chrono::milliseconds start(frame.start_ms);
        schedules_[i].due = Clock::now() + start;
        schedules_[i].timer = loop_->After(start, [this, i] { SendPeriodic(i); });
    }
}

void RawTraffic::Stop() {
    ++generation_;
    for (const Schedule& schedule : schedules_)
        loop_->Cancel(schedule.timer);
    schedules_.clear();
}

void RawTraffic::Later(std::uint32_t after_ms, std::function<void()> action) {
    loop_->After(std::chrono::milliseconds(after_ms),
                 [this, generation = generation_, action = std::move(action)] {
                     if (generation == generation_) action();
                 });
}

// Due times count from the first frame, so that the rate does not drift. Frames that fell due while
// the program could not run are skipped, as on a busy bus.
void RawTraffic::SendPeriodic(std::size_t index) {
    const PeriodicFrame& frame = setup_->frames[index];
    Schedule& schedule = schedules_[index];
    if (ignition_ || frame.permanent) Send(frame.Make(schedule.number++));
    const Clock::time_point now = Clock::now();
    schedule.due = std::max(schedule.due + std::chrono::milliseconds(frame.period_ms), now);
    schedule.timer = loop_->After(std::chrono::ceil<std::chrono::milliseconds>(schedule.due - now),
                                  [this, index] { SendPeriodic(index); });
}

bool RawTraffic::Send(const RawFrame& frame) {
    if (!IsListenedTo()) return false;
    ++sent_;
    handlers_.send({&frame, 1});
    return true;
}

bool RawTraffic::SendBurst(std::uint32_t id, std::uint32_t count) {
    if (!IsListenedTo()) return false;
    ContinueBurst(id, 0, count);
    return true;
}

void RawTraffic::ContinueBurst(std::uint32_t id, std::uint32_t next, std::uint32_t count) {
    std::vector<RawFrame> frames;
    for (std::uint32_t i = 0; i < kBurstPart && next < count; ++i)
        frames.push_back(MakeNumberedFrame(id, next++));
    sent_ += frames.size();
    handlers_.send(frames);
    if (next < count) Later(0, [this, id, next, count] { ContinueBurst(id, next, count); });
}

void RawTraffic::OnFrame(RawFrame frame) {
    ++received_count_;
    if (received_ids_.size() < kKeptIds || received_ids_.contains(frame.id)) {
        IdCount& counted = received_ids_[frame.id];
        ++counted.count;
        counted.last = frame.data;
    }
    if (!ignition_ || !Answer(frame)) handlers_.unanswered(frame);
    if (received_.size() == kKeptFrames) received_.pop_front();
    received_.push_back({Clock::now(), std::move(frame)});
}

bool RawTraffic::Answer(const RawFrame& frame) {
    for (const RawAnswer& answer : setup_->answers) {
        if (!answer.Matches(frame)) continue;
        for (const RawAnswer::Reply& reply : answer.replies)
            Later(reply.delay_ms, [this, reply = reply.frame] { Send(reply); });
        return true;
    }
    return false;
}

void RawTraffic::ClearReceived() {
    received_count_ = 0;
    received_.clear();
    received_ids_.clear();
}

}  // namespace brennix
