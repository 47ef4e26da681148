#include "vehicle/vehicle.h"

#include <algorithm>

namespace brennix {

namespace {

constexpr std::uint8_t kNegativeResponse = 0x7F;
constexpr std::uint8_t kPositiveOffset = 0x40;
constexpr std::uint8_t kSuppressPositive = 0x80;  // bit beside the sub-function
constexpr std::uint8_t kSubFunction = 0x7F;       // its bits
constexpr std::uint8_t kFormatIso14229 = 0x01;    // of trouble codes
constexpr std::uint8_t kLastResetKind = 3;
constexpr std::uint32_t kDefaultPendingIntervalMs = 20;
constexpr std::uint32_t kAllTroubleCodes = 0xFFFFFF;
constexpr std::uint8_t kStatusAvailability = 0xFF;

enum Service : std::uint8_t {
    kSessionControl = 0x10,
    kReset = 0x11,
    kClearTroubleCodes = 0x14,
    kReadTroubleCodes = 0x19,
    kReadData = 0x22,
    kWriteData = 0x2E,
    kTesterPresent = 0x3E,
};

enum TroubleCodeReport : std::uint8_t {
    kCountByStatus = 0x01,
    kListByStatus = 0x02,
    kListSupported = 0x0A,
};

enum ResponseCode : std::uint8_t {
    kServiceNotSupported = 0x11,
    kSubFunctionNotSupported = 0x12,
    kIncorrectLength = 0x13,
    kRequestOutOfRange = 0x31,
    kResponsePending = 0x78,
    kSubFunctionNotInSession = 0x7E,
    kServiceNotInSession = 0x7F,
};

Bytes Negative(ByteSpan request, std::uint8_t code) {
    return {kNegativeResponse, request.empty() ? std::uint8_t{0} : request[0], code};
}

bool IsNegative(ByteSpan answer) { return answer.size() == 3 && answer[0] == kNegativeResponse; }

// A control unit does not report that it does not know a functional request.
bool IsKeptToItself(ByteSpan answer) {
    static constexpr std::uint8_t kCodes[] = {kServiceNotSupported, kSubFunctionNotSupported,
                                              kRequestOutOfRange, kSubFunctionNotInSession,
                                              kServiceNotInSession};
    return IsNegative(answer) &&
           std::find(std::begin(kCodes), std::end(kCodes), answer[2]) != std::end(kCodes);
}

bool HasSubFunction(std::uint8_t service) {
    return service == kSessionControl || service == kReset || service == kReadTroubleCodes ||
           service == kTesterPresent;
}

void AppendTroubleCode(Bytes* out, const TroubleCode& trouble) {
    out->push_back(static_cast<std::uint8_t>(trouble.code >> 16));
    out->push_back(static_cast<std::uint8_t>((trouble.code >> 8) & 0xFF));
    out->push_back(static_cast<std::uint8_t>(trouble.code & 0xFF));
    out->push_back(trouble.status);
}

void AppendBigEndian16(Bytes* out, std::uint16_t value) {
    out->push_back(static_cast<std::uint8_t>(value >> 8));
    out->push_back(static_cast<std::uint8_t>(value & 0xFF));
}

std::uint16_t DataId(ByteSpan bytes) {
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

}  // namespace

void ControlUnit::Reset() {
    setup_ = initial_;
    session_ = kDefaultSession;
}

AnswerRow* ControlUnit::FindRow(ByteSpan request) {
    for (AnswerRow& row : setup_.rows) {
        if (row.request.Matches(request)) return &row;
    }
    return nullptr;
}

void ControlUnit::NoteRequest(Clock::time_point now, bool kept_alive) {
    const std::chrono::milliseconds limit(setup_.session_timeout_ms);
    if (session_ != kDefaultSession && !kept_alive && now - last_request_ > limit)
        session_ = kDefaultSession;
    last_request_ = now;
}

Bytes ControlUnit::Answer(ByteSpan request, bool is_functional) {
    Bytes answer = Dispatch(request);
    if (is_functional && IsKeptToItself(answer)) return {};
    const bool is_suppressed =
        request.size() >= 2 && HasSubFunction(request[0]) && (request[1] & kSuppressPositive) != 0;
    if (is_suppressed && !IsNegative(answer)) return {};
    return answer;
}

Bytes ControlUnit::Dispatch(ByteSpan request) {
    if (request.empty()) return {};
    switch (request[0]) {
        case kSessionControl:
            return StartSession(request);
        case kReset:
            return ResetUnit(request);
        case kClearTroubleCodes:
            return ClearTroubleCodes(request);
        case kReadTroubleCodes:
            return ReadTroubleCodes(request);
        case kReadData:
            return ReadData(request);
        case kWriteData:
            return WriteData(request);
        case kTesterPresent:
            return TesterPresent(request);
        default:
            return Negative(request, kServiceNotSupported);
    }
}

Bytes ControlUnit::StartSession(ByteSpan request) {
    if (request.size() != 2) return Negative(request, kIncorrectLength);
    const std::uint8_t wanted = request[1] & kSubFunction;
    const auto found = setup_.sessions.find(wanted);
    if (found == setup_.sessions.end()) return Negative(request, kSubFunctionNotSupported);
    session_ = wanted;
    Bytes answer = {kSessionControl + kPositiveOffset, wanted};
    AppendBigEndian16(&answer, found->second.p2_ms);
    AppendBigEndian16(&answer, found->second.p2_star_ms / 10);  // in units of 10 ms
    return answer;
}

Bytes ControlUnit::ResetUnit(ByteSpan request) {
    if (request.size() != 2) return Negative(request, kIncorrectLength);
    const std::uint8_t kind = request[1] & kSubFunction;
    if (kind < 1 || kind > kLastResetKind) return Negative(request, kSubFunctionNotSupported);
    session_ = kDefaultSession;
    return {kReset + kPositiveOffset, kind};
}

Bytes ControlUnit::ClearTroubleCodes(ByteSpan request) {
    if (request.size() != 4) return Negative(request, kIncorrectLength);
    const std::uint32_t group =
        static_cast<std::uint32_t>(request[1] << 16 | request[2] << 8 | request[3]);
    std::vector<TroubleCode>& codes = setup_.trouble_codes;
    const auto matches = [group](const TroubleCode& trouble) {
        return group == kAllTroubleCodes || trouble.code == group;
    };
    const auto first = std::remove_if(codes.begin(), codes.end(), matches);
    if (first == codes.end() && group != kAllTroubleCodes) {
        return Negative(request, kRequestOutOfRange);
    }
    codes.erase(first, codes.end());
    return {kClearTroubleCodes + kPositiveOffset};
}

Bytes ControlUnit::ReadTroubleCodes(ByteSpan request) const {
    if (request.size() < 2) return Negative(request, kIncorrectLength);
    const std::uint8_t report = request[1] & kSubFunction;
    const bool has_mask = report == kCountByStatus || report == kListByStatus;
    if (!has_mask && report != kListSupported) return Negative(request, kSubFunctionNotSupported);
    if (request.size() != (has_mask ? 3u : 2u)) return Negative(request, kIncorrectLength);

    std::vector<TroubleCode> found;
    for (const TroubleCode& trouble : setup_.trouble_codes) {
        if (!has_mask || (trouble.status & request[2]) != 0) found.push_back(trouble);
    }
    Bytes answer = {kReadTroubleCodes + kPositiveOffset, report, kStatusAvailability};
    if (report == kCountByStatus) {
        answer.push_back(kFormatIso14229);
        AppendBigEndian16(&answer, static_cast<std::uint16_t>(found.size()));
        return answer;
    }
    for (const TroubleCode& trouble : found)
        AppendTroubleCode(&answer, trouble);
    return answer;
}

Bytes ControlUnit::ReadData(ByteSpan request) const {
    if (request.size() < 3 || request.size() % 2 == 0) return Negative(request, kIncorrectLength);
    Bytes answer = {kReadData + kPositiveOffset};
    for (std::size_t at = 1; at < request.size(); at += 2) {
        const auto found = setup_.data.find(DataId(request.subspan(at)));
        if (found == setup_.data.end()) continue;
        const DataItem& item = found->second;
        const bool readable =
            item.sessions.empty() ||
            std::find(item.sessions.begin(), item.sessions.end(), session_) != item.sessions.end();
        if (!readable) continue;
        AppendBytes(&answer, request.subspan(at, 2));
        AppendBytes(&answer, item.value);
    }
    // Unknown identifiers are skipped as long as at least one is known.
    if (answer.size() == 1) return Negative(request, kRequestOutOfRange);
    return answer;
}

Bytes ControlUnit::WriteData(ByteSpan request) {
    if (request.size() < 4) return Negative(request, kIncorrectLength);
    const auto found = setup_.data.find(DataId(request.subspan(1)));
    if (found == setup_.data.end() || !found->second.writable) {
        return Negative(request, kRequestOutOfRange);
    }
    if (request.size() - 3 != found->second.value.size()) {
        return Negative(request, kIncorrectLength);
    }
    found->second.value.assign(request.begin() + 3, request.end());
    return {kWriteData + kPositiveOffset, request[1], request[2]};
}

Bytes ControlUnit::TesterPresent(ByteSpan request) const {
    if (request.size() != 2) return Negative(request, kIncorrectLength);
    if ((request[1] & kSubFunction) != 0) return Negative(request, kSubFunctionNotSupported);
    return {kTesterPresent + kPositiveOffset, 0};
}

Vehicle::Vehicle(std::vector<ControlUnitSetup> units) {
    for (ControlUnitSetup& setup : units) {
        units_.push_back(std::make_unique<ControlUnit>(std::move(setup)));
        ControlUnit* unit = units_.back().get();
        listeners_[unit->Setup().request_id].push_back({unit, false});
        for (const std::uint32_t id : unit->Setup().functional_ids) {
            listeners_[id].push_back({unit, true});
        }
    }
}

void Vehicle::SetTesterPresent(std::uint32_t period_ms) {
    // Sessions kept alive so far get a full time-out from now on.
    for (const auto& unit : units_) {
        const bool was_kept =
            tester_present_ms_ != 0 && tester_present_ms_ <= unit->Setup().session_timeout_ms;
        unit->NoteRequest(Clock::now(), was_kept);
    }
    tester_present_ms_ = period_ms;
}

void Vehicle::SetPower(const Power& power) {
    power_ = power;
    for (const auto& unit : units_) {
        if (!unit->IsAwake(power_)) unit->FallAsleep();
    }
}

ControlUnit* Vehicle::Find(const std::string& name) {
    for (const auto& unit : units_) {
        if (unit->Setup().name == name) return unit.get();
    }
    return nullptr;
}

void Vehicle::Ask(std::uint32_t request_id, ByteSpan request, const Behaviour& dongle,
                  const Behaviour& special, std::vector<BusMessage>* messages) {
    last_behaviour_ = dongle;
    last_behaviour_.Override(special);
    const auto found = listeners_.find(request_id);
    if (found == listeners_.end()) return;
    const Clock::time_point now = Clock::now();
    bool is_first = true;
    for (const Listener& listener : found->second) {
        if (!listener.unit->IsAwake(power_)) continue;
        const bool kept_alive = tester_present_ms_ != 0 &&
                                tester_present_ms_ <= listener.unit->Setup().session_timeout_ms;
        listener.unit->NoteRequest(now, kept_alive);
        AnswerRow* row = listener.unit->FindRow(request);
        Behaviour merged = dongle;
        merged.Override(listener.unit->OwnBehaviour());
        if (row != nullptr) merged.Override(row->behaviour);
        merged.Override(special);
        listener.unit->OwnBehaviour().CountRequest();
        if (row != nullptr) row->behaviour.CountRequest();
        AskUnit(listener, request, merged, row, messages);
        if (is_first) last_behaviour_ = merged;
        is_first = false;
    }
}

void Vehicle::AskUnit(const Listener& listener, ByteSpan request, const Behaviour& merged,
                      const AnswerRow* row, std::vector<BusMessage>* messages) {
    const std::uint32_t response_id = listener.unit->Setup().response_id;
    Bytes answer;
    if (merged.negative) {
        answer = Negative(request, *merged.negative);
    } else {
        answer =
            row != nullptr ? row->response : listener.unit->Answer(request, listener.is_functional);
    }
    if (answer.empty() || merged.silent.value_or(false)) return;

    std::uint32_t at_ms = merged.delay_ms.value_or(0);
    const std::uint32_t interval = merged.pending_interval_ms.value_or(kDefaultPendingIntervalMs);
    for (std::uint32_t i = 0; i < merged.pending.value_or(0); ++i) {
        messages->push_back({at_ms, response_id, Negative(request, kResponsePending)});
        at_ms += interval;
    }
    for (std::uint32_t i = 0; i < merged.repeat.value_or(0); ++i) {
        messages->push_back({at_ms, response_id, answer});
    }
    messages->push_back({at_ms, response_id, std::move(answer)});
}

}  // namespace brennix
