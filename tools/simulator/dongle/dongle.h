// One dongle: how it answers the packets that it receives.

#pragma once

#include <array>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "ports/pty.h"
#include "process/event_loop.h"
#include "protocol/fragments.h"
#include "protocol/open_pings.h"
#include "protocol/request.h"
#include "protocol/seal.h"
#include "protocol/stream_cutter.h"
#include "record/record.h"
#include "replay/recording.h"
#include "vehicle/behaviour.h"
#include "vehicle/raw_traffic.h"
#include "vehicle/timeline.h"
#include "vehicle/vehicle.h"

namespace brennix {

struct Identity {
    std::uint32_t model = 5;
    std::array<std::uint8_t, 6> mac = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
    std::string name = "Brennix";
    std::string firmware = "1.5.0.62-simulated";
    std::string build_time = "12:00:00";
    std::string build_date = "Jan  1 2026";
};

Bytes MakeLogin(const Identity& identity);  // LOGN

struct DongleSetup {
    Identity identity;
    Behaviour behaviour;
    bool mute = false;                              // receives and records, never answers
    std::size_t noise_before_sync = 0;              // bytes sent before the answer to SYNC
    std::map<std::uint32_t, std::uint32_t> ignore;  // type: number of packets that it ignores
    std::uint32_t busy_identify = 0;                // number of IDEN answered with BUSY
    std::vector<ControlUnitSetup> control_units;
    RawSetup raw;
    TimelineSetup timeline;
    // Answers instead of the control units.
    std::shared_ptr<const Recording> recording;
    bool strict_replay = false;  // a request that the recording does not have is a violation
};

// What a dongle of a relay or a radio is connected to instead of a serial port.
class Uplink {
public:
    // `asker`: as in Dongle::Receive if the packet is an answer; 0 if it is unsolicited.
    virtual void FromDongle(std::size_t dongle, std::uint64_t asker, ByteSpan packet) = 0;
    virtual void PowerChanged(std::size_t dongle, bool powered) = 0;
    virtual std::size_t LongestPacket(std::size_t dongle) const = 0;

protected:
    ~Uplink() = default;
};

class Dongle : private StreamCutter::Sink {
public:
    // `seal` is shared by all dongles of one host.
    Dongle(std::size_t index, DongleSetup setup, EventLoop* loop, Record* record, Seal* seal);

    // Call before PowerOn. The dongle then has no serial port.
    void Connect(Uplink* uplink) { uplink_ = uplink; }
    // A packet from the uplink's host with the number `asker`, which is not 0.
    void Receive(ByteSpan packet, std::uint64_t asker);
    // The uplink's only host is gone: forgets what it had started.
    void ForgetHost();
    // Reports what the host did wrong.
    void Violation(std::string text);

    void PowerOn();   // throws std::system_error if there is no pseudo-terminal
    void PowerOff();  // forgets everything pending
    bool IsPowered() const { return powered_; }
    Pty& Port() { return pty_; }

    DongleSetup& Setup() { return setup_; }
    const DongleSetup& Setup() const { return setup_; }
    Vehicle& Car() { return vehicle_; }
    RawTraffic& Raw() { return raw_; }
    Timeline& Script() { return timeline_; }
    const RecordingPlayer* Player() const { return player_ ? &*player_ : nullptr; }
    const std::string& LastUnknownRequest() const { return last_unknown_; }
    // Restarts recording and timeline.
    void RestartScripts();

    // For the next `count` requests, after those queued before.
    void QueueBehaviour(std::uint32_t count, const Behaviour& behaviour);
    void ClearQueuedBehaviours() { queued_.clear(); }

    // Unsolicited.
    void SendRaw(ByteSpan bytes);
    void SendPacket(ByteSpan packet);  // in fragments and sealed, as the dongle's behaviour says
    void SendPing(ByteSpan payload);
    void SendNoise(std::size_t count);  // and a SYNC, so that the host resynchronises

    std::uint64_t Violations() const { return violations_; }
    const std::string& LastViolation() const { return last_violation_; }
    void ClearViolations();
    std::size_t InFlight() const { return in_flight_.size(); }
    void SetCutHandler(std::function<void()> handler) { cut_handler_ = std::move(handler); }

private:
    void OnPacket(ByteSpan packet) override;
    void OnNoise(ByteSpan bytes) override;
    void OnBadHeader(ByteSpan header) override;
    void OnHostLeft();

    void Handle(ByteSpan packet);
    bool IsIgnored(std::uint32_t type);
    void OnPowerChanged(const Power& power);
    std::string OwnTelemetry() const;
    void AnswerSync();
    void AnswerIdentify();
    void HandleFragment(ByteSpan packet);
    void HandleReply(ByteSpan packet);
    void HandleRequest(ByteSpan packet);
    void AskSingle(const Request& request, const Behaviour& special);
    void Replay(const Request& request, const Behaviour& special);
    void ReplayUnknown(const Request& request, const Behaviour& behaviour);
    void AskMulti(const Request& request, const Behaviour& special);
    void AskByFrame(const RawFrame& frame);
    Behaviour TakeQueuedBehaviour();

    // Sends what `behaviour` puts before the answer and, `after_ms` from now, the answer that
    // `make` builds from the time since the request.
    void Schedule(std::uint32_t request_id, std::uint32_t after_ms, const Behaviour& behaviour,
                  std::function<Bytes(std::uint32_t answer_id, std::uint32_t waited_ms)> make);
    void ScheduleBusy(std::uint32_t request_id, std::uint32_t number, const Behaviour& behaviour);
    void SendRawFrames(std::span<const RawFrame> frames);
    void SendAnswer(ByteSpan packet, const Behaviour& behaviour);
    void Transmit(ByteSpan packet);
    Bytes MakeNoise(std::size_t count);
    void Later(std::uint32_t after_ms, std::function<void()> action);

    const std::size_t index_;
    DongleSetup setup_;
    EventLoop* loop_;
    Record* record_;
    Seal* seal_;
    Vehicle vehicle_;
    RawTraffic raw_;
    Timeline timeline_;
    std::optional<RecordingPlayer> player_;
    std::string last_unknown_;
    Pty pty_;
    Uplink* uplink_ = nullptr;
    bool powered_ = false;
    std::uint64_t asker_ = 0;  // of the packet that is being answered
    StreamCutter cutter_;
    Reassembler reassembler_;
    std::deque<std::pair<std::uint32_t, Behaviour>> queued_;
    std::multiset<std::uint32_t> in_flight_;  // request ids not answered yet
    OpenPings open_pings_;
    bool is_new_host_ = true;  // no SYNC since the port was opened
    std::uint64_t power_cycle_ = 0;
    Clock::time_point powered_since_;
    std::uint64_t violations_ = 0;
    std::string last_violation_;
    std::uint32_t noise_state_ = 0x2545F491;
    std::function<void()> cut_handler_;
};

}  // namespace brennix
