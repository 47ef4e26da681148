#include "dongle/dongle.h"

#include <errno.h>

#include <algorithm>
#include <cstdio>

#include "dongle/telemetry.h"
#include "protocol/layout.h"
#include "protocol/packet_check.h"

namespace brennix {

namespace {

// How long the dongle waits for a control unit after a "response pending".
constexpr std::uint32_t kPendingLimitMs = 6000;

// Added to a request's id to make the ids of intentionally wrong answers.
constexpr std::uint32_t kWrongIdOffset = 0x20000000;
constexpr std::uint32_t kStrayIdOffset = 0x40000000;

struct BusOutcome {
    std::uint32_t at_ms;
    const BusMessage* answer;  // null: none in time
};

bool IsEarlier(const BusMessage& a, const BusMessage& b) { return a.at_ms < b.at_ms; }

// The result for a dongle that listens to `response_id`. `messages` are in order of time; the first
// that is not "response pending" is the answer, unless the time-out is earlier.
BusOutcome FirstAnswer(const std::vector<BusMessage>& messages, std::uint32_t response_id,
                       std::uint32_t timeout_ms) {
    std::uint32_t limit_ms = timeout_ms;
    for (const BusMessage& message : messages) {
        if (message.response_id != response_id) continue;
        if (message.at_ms > limit_ms) break;
        if (!message.IsResponsePending()) return {message.at_ms, &message};
        limit_ms = message.at_ms + std::max(timeout_ms, kPendingLimitMs);
    }
    return {limit_ms, nullptr};
}

}  // namespace

Bytes MakeLogin(const Identity& identity) {
    Bytes payload(logn::kMac - kHeaderSize, 0);
    AppendBytes(&payload, identity.mac);
    payload.resize(logn::kModel - kHeaderSize);
    AppendU32(&payload, identity.model);
    payload.resize(logn::kFirmware - kHeaderSize);
    AppendText(&payload, identity.firmware, logn::kFirmwareWidth);
    AppendText(&payload, identity.name, logn::kNameWidth);
    AppendText(&payload, identity.build_time, logn::kBuildWidth);
    AppendText(&payload, identity.build_date, logn::kBuildWidth);
    payload.resize(logn::kSize - kHeaderSize);
    return MakePacket(type::kLogn, payload);
}

Dongle::Dongle(std::size_t index, DongleSetup setup, EventLoop* loop, Record* record, Seal* seal)
    : index_(index),
      setup_(std::move(setup)),
      loop_(loop),
      record_(record),
      seal_(seal),
      vehicle_(setup_.control_units),
      raw_(loop, &setup_.raw,
           {.send = [this](std::span<const RawFrame> frames) { SendRawFrames(frames); },
            .note =
                [this](std::string text) {
                    record_->AddText(index_, Direction::kEvent, std::move(text));
                },
            .unanswered = [this](const RawFrame& frame) { AskByFrame(frame); }}),
      timeline_(loop, &setup_.timeline,
                {.send = [this](ByteSpan packet) { SendPacket(packet); },
                 .power_changed = [this](const Power& power) { OnPowerChanged(power); },
                 .own_telemetry = [this] { return OwnTelemetry(); }}),
      pty_(loop, {.received = [this](ByteSpan bytes) { cutter_.Feed(bytes, this); },
                  .host_left = [this] { OnHostLeft(); },
                  .cut =
                      [this] {
                          if (cut_handler_) cut_handler_();
                      }}) {
    if (setup_.recording) player_.emplace(setup_.recording.get());
}

void Dongle::PowerOn() {
    if (IsPowered()) return;
    if (uplink_ == nullptr) pty_.Open();
    powered_ = true;
    powered_since_ = Clock::now();
    if (uplink_ != nullptr) {
        record_->AddText(index_, Direction::kEvent, "switched on");
        timeline_.Start();
        uplink_->PowerChanged(index_, true);
        return;
    }
    record_->AddText(index_, Direction::kEvent, "plugged in as " + pty_.SlavePath());
}

void Dongle::PowerOff() {
    if (!IsPowered()) return;
    pty_.Close();
    powered_ = false;
    ++power_cycle_;
    cutter_.Reset();
    ForgetHost();
    in_flight_.clear();
    vehicle_.SetTesterPresent(0);
    timeline_.Stop();
    is_new_host_ = true;
    record_->AddText(index_, Direction::kEvent, "unplugged");
    if (uplink_ != nullptr) uplink_->PowerChanged(index_, false);
}

void Dongle::Receive(ByteSpan packet, std::uint64_t asker) {
    asker_ = asker;
    OnPacket(packet);
    asker_ = 0;
}

void Dongle::ForgetHost() {
    reassembler_.Reset();
    open_pings_.Clear();
    raw_.Reset();
}

void Dongle::OnHostLeft() {
    const std::size_t dropped = cutter_.Reset();
    ForgetHost();
    timeline_.Stop();
    is_new_host_ = true;
    std::string text = "port closed by the host";
    if (dropped != 0) text += " within a packet, " + std::to_string(dropped) + " bytes of it came";
    record_->AddText(index_, Direction::kEvent, std::move(text));
}

void Dongle::Violation(std::string text) {
    ++violations_;
    last_violation_ = text;
    std::fprintf(stderr, "%s: dongle %zu: violation: %s\n", program_invocation_short_name, index_,
                 text.c_str());
    record_->AddText(index_, Direction::kViolation, std::move(text));
}

void Dongle::ClearViolations() {
    violations_ = 0;
    last_violation_.clear();
}

void Dongle::OnNoise(ByteSpan bytes) {
    Violation(std::to_string(bytes.size()) +
              " bytes before SYNC: " + ToHex(bytes.first(std::min<std::size_t>(bytes.size(), 32))));
}

void Dongle::OnBadHeader(ByteSpan header) {
    Violation("packet header with length " + std::to_string(PacketLength(header)) + ": " +
              ToHex(header));
}

void Dongle::OnPacket(ByteSpan packet) {
    record_->AddPacket(index_, Direction::kIn, packet);
    if (std::string wrong = CheckPacket(packet); !wrong.empty()) Violation(std::move(wrong));
    Handle(packet);
}

void Dongle::Handle(ByteSpan packet) {
    const std::uint32_t type = PacketType(packet);
    if (setup_.mute || IsIgnored(type)) return;
    switch (type) {
        case type::kSync:
            return AnswerSync();
        case type::kIden:
            return AnswerIdentify();
        case type::kCreq:
            return HandleRequest(packet);
        case type::kRawc:
            return raw_.OnPacket(packet);
        case type::kFrag:
            return HandleFragment(packet);
        case type::kRepl:
            return HandleReply(packet);
        case type::kTspr:
            if (packet.size() >= tspr::kMessage) {
                vehicle_.SetTesterPresent(LoadU32(packet.data() + tspr::kPeriod));
            }
            return;
        default:
            return;  // recorded; needs no answer
    }
}

bool Dongle::IsIgnored(std::uint32_t type) {
    if (setup_.ignore.empty()) return false;
    const auto found = setup_.ignore.find(type);
    if (found == setup_.ignore.end()) return false;
    if (--found->second == 0) setup_.ignore.erase(found);
    return true;
}

void Dongle::AnswerSync() {
    if (setup_.noise_before_sync != 0) SendRaw(MakeNoise(setup_.noise_before_sync));
    Transmit(MakePacket(type::kSync, {}));
    if (is_new_host_ && player_) player_->Rewind();
    is_new_host_ = false;
    timeline_.Start();
}

void Dongle::OnPowerChanged(const Power& power) {
    vehicle_.SetPower(power);
    raw_.SetIgnition(power.ignition);
    record_->AddText(index_, Direction::kEvent,
                     "battery " + std::to_string(power.battery_mv) + " mV, ignition " +
                         (power.ignition ? "on" : "off"));
}

std::string Dongle::OwnTelemetry() const {
    const auto uptime =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - powered_since_);
    return MakeTelemetry({.uptime_ms = static_cast<std::uint64_t>(uptime.count()),
                          .requests_waiting = in_flight_.size(),
                          .frames_sent = raw_.Sent(),
                          .power = timeline_.CurrentPower()});
}

void Dongle::AnswerIdentify() {
    if (setup_.busy_identify == 0) return SendPacket(MakeLogin(setup_.identity));
    --setup_.busy_identify;
    SendPacket(MakeBusy(0, "busy with another host"));
}

void Dongle::HandleFragment(ByteSpan packet) {
    Reassembler::Result result = reassembler_.Feed(packet);
    if (!result.violation.empty()) Violation(std::move(result.violation));
    if (!result.whole.empty()) OnPacket(result.whole);
}

void Dongle::HandleReply(ByteSpan packet) {
    if (std::string wrong = open_pings_.CheckReply(packet); !wrong.empty()) {
        Violation(std::move(wrong));
    }
}

void Dongle::QueueBehaviour(std::uint32_t count, const Behaviour& behaviour) {
    if (count != 0) queued_.emplace_back(count, behaviour);
}

Behaviour Dongle::TakeQueuedBehaviour() {
    if (queued_.empty()) return {};
    Behaviour behaviour = queued_.front().second;
    if (--queued_.front().first == 0) queued_.pop_front();
    return behaviour;
}

void Dongle::HandleRequest(ByteSpan packet) {
    const std::optional<Request> request = ReadRequest(packet);
    if (!request) return;  // already reported as a violation
    const Behaviour special = TakeQueuedBehaviour();
    if (player_) {
        Replay(*request, special);
    } else if (request->is_multi) {
        AskMulti(*request, special);
    } else {
        AskSingle(*request, special);
    }
    setup_.behaviour.CountRequest();
}

void Dongle::AskSingle(const Request& request, const Behaviour& special) {
    std::vector<BusMessage> messages;
    vehicle_.Ask(request.physical_id, request.data, setup_.behaviour, special, &messages);
    std::stable_sort(messages.begin(), messages.end(), IsEarlier);
    const BusOutcome outcome = FirstAnswer(messages, request.response_id, request.timeout_ms);
    Schedule(request.id, outcome.at_ms, vehicle_.LastBehaviour(),
             [has_answer = outcome.answer != nullptr,
              data = outcome.answer != nullptr ? outcome.answer->data : Bytes{}](
                 std::uint32_t answer_id, std::uint32_t waited_ms) {
                 return MakeResponse(answer_id, has_answer ? waited_ms : kNoAnswerInTime, data);
             });
}

// One request on the functional id; answered once every responder has answered or timed out. A
// responder's further answers are passed on too. Responders without an answer have no entry.
void Dongle::AskMulti(const Request& request, const Behaviour& special) {
    std::vector<BusMessage> messages;
    vehicle_.Ask(request.functional_id, request.data, setup_.behaviour, special, &messages);
    std::stable_sort(messages.begin(), messages.end(), IsEarlier);
    std::vector<std::pair<std::uint32_t, Bytes>> answers;
    std::uint32_t done_ms = 0;
    for (const Responder& responder : request.responders) {
        const BusOutcome outcome = FirstAnswer(messages, responder.response_id, request.timeout_ms);
        done_ms = std::max(done_ms, outcome.at_ms);
    }
    for (const BusMessage& message : messages) {
        if (message.at_ms > done_ms || message.IsResponsePending()) continue;
        if (const auto position = request.PositionOf(message.response_id)) {
            answers.emplace_back(*position, message.data);
        }
    }
    Behaviour behaviour = setup_.behaviour;
    behaviour.Override(special);
    const auto known = static_cast<std::uint32_t>(request.responders.size());
    for (std::uint32_t i = 0; i < behaviour.foreign_entries.value_or(0); ++i)
        answers.emplace_back(known + i, messages.empty() ? Bytes{} : messages.front().data);
    Schedule(request.id, done_ms, behaviour,
             [answers = std::move(answers)](std::uint32_t answer_id, std::uint32_t) {
                 return MakeMultiResponse(answer_id, answers);
             });
}

// A raw frame may be a request that fits one frame: the control units that listen to its id answer
// on the bus, where a raw listener sees it. Of a longer answer that is the first frame: nobody
// sends the flow control for the others.
void Dongle::AskByFrame(const RawFrame& frame) {
    const std::optional<ByteSpan> request = SingleFrameData(frame);
    if (!request || player_) return;
    std::vector<BusMessage> messages;
    vehicle_.Ask(frame.id, *request, setup_.behaviour, {}, &messages);
    for (const BusMessage& message : messages) {
        Later(message.at_ms,
              [this, first = FirstFrame(message.response_id, message.data)] { raw_.Send(first); });
    }
}

// Sends what the dongle sent for this request in the recording, possibly nothing.
void Dongle::Replay(const Request& request, const Behaviour& special) {
    Behaviour behaviour = setup_.behaviour;
    behaviour.Override(special);
    const RecordedExchange* exchange = player_->Next(request);
    if (exchange == nullptr) return ReplayUnknown(request, behaviour);
    for (const RecordedPacket& recorded : exchange->packets) {
        in_flight_.insert(request.id);
        Later(recorded.at_ms,
              [this, id = request.id, behaviour, packet = MakeRecorded(recorded, request)] {
                  in_flight_.erase(in_flight_.find(id));
                  SendAnswer(packet, behaviour);
              });
    }
}

// The recording has no answer: the request times out.
void Dongle::ReplayUnknown(const Request& request, const Behaviour& behaviour) {
    last_unknown_ = DescribeAsked(request);
    if (setup_.strict_replay) {
        Violation("not in the trace: " + last_unknown_);
    } else {
        std::fprintf(stderr, "brennix-sim: dongle %zu: not in the trace: %s\n", index_,
                     last_unknown_.c_str());
        record_->AddText(index_, Direction::kEvent, "not in the trace: " + last_unknown_);
    }
    const Bytes packet = request.is_multi ? MakeMultiResponse(request.id, {})
                                          : MakeResponse(request.id, kNoAnswerInTime, {});
    Later(request.timeout_ms, [this, packet, behaviour] { SendAnswer(packet, behaviour); });
}

void Dongle::RestartScripts() {
    if (player_) player_->Rewind();
    timeline_.Restart();
}

void Dongle::Later(std::uint32_t after_ms, std::function<void()> action) {
    if (after_ms == 0) return action();
    loop_->After(std::chrono::milliseconds(after_ms),
                 [this, power_cycle = power_cycle_, asker = asker_, action = std::move(action)] {
                     if (power_cycle != power_cycle_) return;
                     asker_ = asker;
                     action();
                     asker_ = 0;
                 });
}

void Dongle::ScheduleBusy(std::uint32_t request_id, std::uint32_t number,
                          const Behaviour& behaviour) {
    Later(number * behaviour.busy_interval_ms.value_or(0),
          [this, packet = MakeBusy(request_id, behaviour.busy_reason.value_or(""))] {
              SendPacket(packet);
          });
}

void Dongle::Schedule(std::uint32_t request_id, std::uint32_t after_ms, const Behaviour& behaviour,
                      std::function<Bytes(std::uint32_t, std::uint32_t)> make) {
    const std::uint32_t busy = behaviour.busy.value_or(0);
    for (std::uint32_t i = 0; i < busy; ++i)
        ScheduleBusy(request_id, i, behaviour);
    if (behaviour.lost.value_or(false)) return;

    after_ms = std::max(after_ms, busy * behaviour.busy_interval_ms.value_or(0));
    in_flight_.insert(request_id);
    Later(after_ms, [=, this, make = std::move(make), start = Clock::now()] {
        in_flight_.erase(in_flight_.find(request_id));
        const auto waited =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        // An immediate answer has wait time 0, however busy the machine is.
        const auto waited_ms = after_ms == 0 ? 0 : static_cast<std::uint32_t>(waited.count());
        for (std::uint32_t i = 0; i < behaviour.stray.value_or(0); ++i) {
            SendAnswer(make(request_id + kStrayIdOffset + i, waited_ms), behaviour);
        }
        const std::uint32_t answer_id =
            behaviour.wrong_id.value_or(false) ? request_id + kWrongIdOffset : request_id;
        const Bytes packet = make(answer_id, waited_ms);
        for (std::uint32_t i = 0; i <= behaviour.duplicate.value_or(0); ++i) {
            SendAnswer(packet, behaviour);
        }
    });
}

void Dongle::SendAnswer(ByteSpan packet, const Behaviour& behaviour) {
    if (behaviour.garbage.value_or(0) != 0) SendNoise(*behaviour.garbage);
    const bool sealed = behaviour.seal.value_or(false);
    std::size_t limit = behaviour.fragment.value_or(kMaxPacketSize);
    if (sealed) limit = std::min(limit, Seal::kMaxInside);
    if (uplink_ != nullptr) limit = std::min(limit, uplink_->LongestPacket(index_));
    SendInFragments(packet, limit, [this, sealed](ByteSpan part) {
        if (sealed) {
            Transmit(seal_->Close(part));
        } else {
            Transmit(part);
        }
    });
}

void Dongle::SendPacket(ByteSpan packet) {
    Behaviour plain = setup_.behaviour;
    plain.garbage.reset();
    SendAnswer(packet, plain);
}

void Dongle::SendRawFrames(std::span<const RawFrame> frames) {
    pty_.Cork();
    for (const RawFrame& frame : frames)
        SendPacket(MakeRawPacket(frame));
    pty_.Uncork();
}

void Dongle::SendPing(ByteSpan payload) {
    open_pings_.Add(payload);
    SendPacket(MakePacket(type::kPing, payload));
}

// No noise byte is below 0x80, so that no eight of them look like a header.
Bytes Dongle::MakeNoise(std::size_t count) {
    Bytes noise;
    for (std::size_t i = 0; i < count; ++i) {
        noise_state_ ^= noise_state_ << 13;
        noise_state_ ^= noise_state_ >> 17;
        noise_state_ ^= noise_state_ << 5;
        noise.push_back(static_cast<std::uint8_t>(noise_state_ | 0x80));
    }
    return noise;
}

// A host that reads the noise as a header searches for SYNC afterwards. With fewer than eight bytes
// of noise it has consumed part of the first SYNC by then, so a second one follows.
void Dongle::SendNoise(std::size_t count) {
    SendRaw(MakeNoise(count));
    const Bytes sync = MakePacket(type::kSync, {});
    Transmit(sync);
    if (count < kHeaderSize) Transmit(sync);
}

void Dongle::SendRaw(ByteSpan bytes) {
    if (uplink_ != nullptr) return;  // only packets travel over a relay
    record_->AddText(index_, Direction::kEvent, "sent bytes " + ToHex(bytes));
    pty_.Send(bytes);
}

void Dongle::Transmit(ByteSpan packet) {
    if (uplink_ != nullptr) {
        record_->AddPacket(index_, Direction::kOut, packet);
        uplink_->FromDongle(index_, asker_, packet);
        return;
    }
    if (!pty_.IsHostThere()) {
        record_->AddText(index_, Direction::kEvent,
                         TypeName(PacketType(packet)) + " lost, no host has the port open");
        return;
    }
    record_->AddPacket(index_, Direction::kOut, packet);
    pty_.Send(packet);
}

}  // namespace brennix
