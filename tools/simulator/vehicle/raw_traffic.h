// CAN frames that are not diagnostic requests: what the vehicle sends unasked, how it answers the
// host's frames, and whether the host receives them.

#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "process/timed_list.h"
#include "protocol/raw_frame.h"
#include "vehicle/byte_pattern.h"

namespace brennix {

// Sent periodically while the host receives raw frames.
struct PeriodicFrame {
    std::string name;
    std::uint32_t id = 0;
    std::vector<Bytes> data;             // one after the other, then from the first again
    std::uint32_t period_ms = 100;       // 0: stopped
    std::uint32_t start_ms = 0;          // delay of the first one after reception was switched on
    bool permanent = false;              // also with the ignition off
    std::optional<std::size_t> counter;  // index of the byte that counts the frames

    RawFrame Make(std::uint64_t number) const;
};

// Sent once, this long after a host first switched reception on; lost if reception is off then.
struct TimedFrame {
    std::uint32_t at_ms = 0;
    RawFrame frame;
};

// How the vehicle answers a frame of the host.
struct RawAnswer {
    struct Reply {
        RawFrame frame;
        std::uint32_t delay_ms = 0;  // after the host's frame
    };

    std::uint32_t id = 0;
    std::uint32_t id_mask = kMaxCanId;  // bits of the id compared
    BytePattern data;
    std::vector<Reply> replies;

    bool Matches(const RawFrame& frame) const;
};

struct RawSetup {
    // True: each "reception on" adds a listener and each "off" removes one, so that two listeners
    // of one host do not switch each other off. False: the last command applies.
    bool counts_listeners = true;
    std::vector<PeriodicFrame> frames;
    std::vector<RawAnswer> answers;    // the first that matches
    std::vector<TimedFrame> sequence;  // in any order
};

class RawTraffic {
public:
    struct Handlers {
        std::function<void(std::span<const RawFrame>)> send;  // to the host
        std::function<void(std::string)> note;                // for the record
        std::function<void(const RawFrame&)> unanswered;      // a frame of the host
    };
    struct Received {
        Clock::time_point time;
        RawFrame frame;
    };
    struct IdCount {
        std::uint64_t count = 0;
        Bytes last;
    };

    // `setup` belongs to the dongle and outlives this object. Call Restart after changing its
    // frames.
    RawTraffic(EventLoop* loop, const RawSetup* setup, Handlers handlers);
    ~RawTraffic() { Reset(); }
    RawTraffic(const RawTraffic&) = delete;
    RawTraffic& operator=(const RawTraffic&) = delete;

    // A RAWC packet of the host; a malformed one has no effect.
    void OnPacket(ByteSpan packet);
    // The host or the power is gone: nobody listens any more.
    void Reset();
    void Restart();

    // With the ignition off, only permanent frames are sent and nothing answers.
    void SetIgnition(bool on) { ignition_ = on; }

    bool IsListenedTo() const { return listeners_ != 0; }
    std::size_t Listeners() const { return listeners_; }
    // False: nobody listens, the frame is lost.
    bool Send(const RawFrame& frame);
    // Sends `count` frames as fast as the port accepts them. The last four bytes are the frame's
    // number, from 0, most significant byte first; the first four are zero.
    bool SendBurst(std::uint32_t id, std::uint32_t count);

    std::uint64_t Sent() const { return sent_; }
    std::uint64_t ReceivedCount() const { return received_count_; }
    const std::deque<Received>& LastReceived() const { return received_; }
    const std::map<std::uint32_t, IdCount>& ReceivedIds() const { return received_ids_; }
    void ClearReceived();

private:
    struct Schedule {
        EventLoop::TimerId timer;
        Clock::time_point due;
        std::uint64_t number = 0;
    };

    void SwitchOn();
    void SwitchOff();
    void Start();
    void Stop();
    void OnFrame(RawFrame frame);
    bool Answer(const RawFrame& frame);  // false: no row matches
    void SendPeriodic(std::size_t index);
    void ContinueBurst(std::uint32_t id, std::uint32_t next, std::uint32_t count);
    void Later(std::uint32_t after_ms, std::function<void()> action);

    EventLoop* loop_;
    const RawSetup* setup_;
    Handlers handlers_;
    std::size_t listeners_ = 0;
    bool ignition_ = true;
    std::vector<Schedule> schedules_;  // one for each frame of the set-up while somebody listens
    std::uint64_t generation_ = 0;  // changes with each listening period; older actions do nothing
    TimedList<TimedFrame> sequence_;
    std::uint64_t sent_ = 0;
    std::uint64_t received_count_ = 0;
    std::deque<Received> received_;
    std::map<std::uint32_t, IdCount> received_ids_;
};

}  // namespace brennix
