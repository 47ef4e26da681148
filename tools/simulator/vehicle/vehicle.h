// The vehicle behind the dongle: control units that answer diagnostic requests on CAN ids.

#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "process/event_loop.h"
#include "protocol/wire.h"
#include "vehicle/behaviour.h"
#include "vehicle/byte_pattern.h"
#include "vehicle/timeline.h"

namespace brennix {

constexpr std::uint8_t kDefaultSession = 1;

struct DataItem {
    Bytes value;
    std::vector<std::uint8_t> sessions;  // readable in these only; empty: in all
    bool writable = false;
};

struct TroubleCode {
    std::uint32_t code = 0;  // 24 bits
    std::uint8_t status = 0x2F;
};

struct Session {
    std::uint16_t p2_ms = 50;
    std::uint16_t p2_star_ms = 5000;
};

// A fixed answer to a request. Takes precedence over the control unit's own answer.
struct AnswerRow {
    BytePattern request;
    Bytes response;  // empty: no answer
    Behaviour behaviour;
};

struct ControlUnitSetup {
    std::string name;
    std::uint32_t request_id = 0;
    std::uint32_t response_id = 0;
    std::vector<std::uint32_t> functional_ids;
    std::map<std::uint8_t, Session> sessions = {{1, {}}, {2, {}}, {3, {}}};
    std::uint32_t session_timeout_ms = 5000;
    std::map<std::uint16_t, DataItem> data;
    std::vector<TroubleCode> trouble_codes;
    std::vector<AnswerRow> rows;
    bool permanent = false;  // answers with the ignition off too
    std::uint32_t min_battery_mv = 6000;
    Behaviour behaviour;
};

// One message that a control unit puts on the bus.
struct BusMessage {
    std::uint32_t at_ms;  // after the request
    std::uint32_t response_id;
    Bytes data;

    bool IsResponsePending() const {
        return data.size() == 3 && data[0] == 0x7F && data[2] == 0x78;
    }
};

class ControlUnit {
public:
    explicit ControlUnit(ControlUnitSetup setup) : setup_(std::move(setup)), initial_(setup_) {}

    const ControlUnitSetup& Setup() const { return setup_; }
    Behaviour& OwnBehaviour() { return setup_.behaviour; }
    bool IsAwake(const Power& power) const {
        return (power.ignition || setup_.permanent) && power.battery_mv >= setup_.min_battery_mv;
    }
    void FallAsleep() { session_ = kDefaultSession; }
    std::uint8_t CurrentSession() const { return session_; }
    void SetData(std::uint16_t id, Bytes value) { setup_.data[id].value = std::move(value); }
    void Reset();  // as read from the file, default session

    // The row that answers `request`, or null.
    AnswerRow* FindRow(ByteSpan request);
    // The control unit's own answer; empty: none.
    Bytes Answer(ByteSpan request, bool is_functional);
    // Call before each request: ends a session that nobody kept alive.
    void NoteRequest(Clock::time_point now, bool kept_alive);

private:
    Bytes Dispatch(ByteSpan request);
    Bytes StartSession(ByteSpan request);
    Bytes ResetUnit(ByteSpan request);
    Bytes ClearTroubleCodes(ByteSpan request);
    Bytes ReadTroubleCodes(ByteSpan request) const;
    Bytes ReadData(ByteSpan request) const;
    Bytes WriteData(ByteSpan request);
    Bytes TesterPresent(ByteSpan request) const;

    ControlUnitSetup setup_;
    ControlUnitSetup initial_;
    std::uint8_t session_ = kDefaultSession;
    Clock::time_point last_request_{};
};

class Vehicle {
public:
    explicit Vehicle(std::vector<ControlUnitSetup> units);

    // Sends `request` with CAN id `request_id` and appends the answers of the control units that
    // listen to it. `dongle` is less specific than each control unit's own behaviour, `special`
    // more.
    void Ask(std::uint32_t request_id, ByteSpan request, const Behaviour& dongle,
             const Behaviour& special, std::vector<BusMessage>* messages);

    // The dongle's own tester present; keeps sessions alive if its period is short enough.
    void SetTesterPresent(std::uint32_t period_ms);
    // Control units without power do not answer and wake up in the default session.
    void SetPower(const Power& power);
    ControlUnit* Find(const std::string& name);
    const std::vector<std::unique_ptr<ControlUnit>>& Units() const { return units_; }

    // The merged behaviour of the first control unit that got the last request.
    const Behaviour& LastBehaviour() const { return last_behaviour_; }

private:
    struct Listener {
        ControlUnit* unit;
        bool is_functional;
    };

    void AskUnit(const Listener& listener, ByteSpan request, const Behaviour& merged,
                 const AnswerRow* row, std::vector<BusMessage>* messages);

    std::vector<std::unique_ptr<ControlUnit>> units_;
    std::unordered_map<std::uint32_t, std::vector<Listener>> listeners_;
    Power power_;
    std::uint32_t tester_present_ms_ = 0;  // 0: off
    Behaviour last_behaviour_;
};

}  // namespace brennix
