#include "trace/requests.h"

#include <algorithm>
#include <utility>

#include "dpdu_types.h"
#include "uds/answers.h"

namespace dpdu::trace {
namespace {

constexpr std::uint32_t kFunctionalMarker = 0xFFFFEEEE;
constexpr std::uint32_t kWaitTimeSilent = 0xFFFFFFFF;
constexpr std::uint32_t kWaitTimeError = 0xFFFFFFFE;
constexpr std::uint32_t kWaitTimeFunctional = 0xFFFFFFFD;
constexpr std::size_t kUnitHeader = 8;  // position and length before a control unit's answer
constexpr std::size_t kRawHeader = 4;   // the CAN identifier before a frame's data
constexpr std::size_t kMaxFrameData = 8;
// Limits memory for traces with requests, or attempts of a request, that never end.
constexpr std::size_t kMaxOpen = 65'536;
constexpr std::size_t kMaxPerRequest = 4096;

template <typename T>
void AppendBounded(std::vector<T>* list, T value) {
    if (list->size() < kMaxPerRequest) list->push_back(std::move(value));
}

std::uint32_t LoadU32(const Bytes& bytes, std::size_t at) {
    return bytes[at] | std::uint32_t{bytes[at + 1]} << 8 | std::uint32_t{bytes[at + 2]} << 16 |
           std::uint32_t{bytes[at + 3]} << 24;
}

// In the dongle's format: position, length, bytes, padded to a multiple of eight.
void SplitAnswers(const Payload& payload, Exchange* exchange) {
    const Bytes& bytes = payload.bytes;
    std::size_t at = 0;
    while (bytes.size() - at >= kUnitHeader) {
        const std::uint32_t length = LoadU32(bytes, at + 4);
        if (length > bytes.size() - at - kUnitHeader) return;
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at + kUnitHeader);
        exchange->answers.push_back(
            {LoadU32(bytes, at),
             {Bytes(begin, begin + static_cast<std::ptrdiff_t>(length)), length}});
        const std::size_t padded = (kUnitHeader + std::size_t{length} + 7) / 8 * 8;
        if (padded >= bytes.size() - at) break;  // the last one may lack padding
        at += padded;
    }
    exchange->has_all_answers = payload.IsWhole();
}

bool IsRawPayload(const Payload& payload) { return payload.bytes.size() >= kRawHeader; }

bool IsFinalState(std::uint32_t state) {
    return state == PDU_COPST_FINISHED || state == PDU_COPST_CANCELLED;
}

bool HasUnit(const std::vector<UnitAnswer>& answers, std::uint32_t position) {
    return std::any_of(answers.begin(), answers.end(), [position](const UnitAnswer& answer) {
        return answer.position == position;
    });
}

CallbackTime CallbackOf(const Record& record) {
    return {static_cast<std::uint64_t>(record.Number(Field::kBeginUs)),
            static_cast<std::uint64_t>(record.Number(Field::kDurationUs))};
}

Payload PayloadOf(const Record& record, Field length) { return {record.data, record.U32(length)}; }

// The line of a long request is cut before its identifiers; those looked up earlier are still
// known.
void FillAddresses(const Record& record, const Request& request, Exchange* exchange) {
    if (record.Has(Field::kSentPhysicalId)) {
        exchange->is_functional = record.U32(Field::kSentPhysicalId) == kFunctionalMarker;
        exchange->request_id = exchange->is_functional ? record.U32(Field::kSentFunctionalId)
                                                       : record.U32(Field::kSentPhysicalId);
        exchange->response_id = exchange->is_functional ? 0 : record.U32(Field::kSentResponseId);
        exchange->timeout_ms = record.U32(Field::kTimeoutMs);
        return;
    }
    exchange->is_functional = request.units.size() >= 2;
    if (exchange->is_functional) {
        exchange->request_id = request.functional_id;
    } else if (request.units.size() == 1) {
        exchange->request_id = request.units.front().request_id;
        exchange->response_id = request.units.front().response_id;
    } else {
        exchange->request_id = request.physical_id;
        exchange->response_id = request.response_id;
    }
}

}  // namespace

bool Request::IsSendRecv() const { return type == PDU_COPT_SENDRECV; }

bool Request::IsCancelled() const { return state == PDU_COPST_CANCELLED; }

bool Request::IsFinished() const { return state == PDU_COPST_FINISHED; }

bool Request::SendsRawFrame() const {
    return type == PDU_COPT_STARTCOMM && freed_us > 0 && state == 0 && send_cycles >= 1 &&
           send_cycles <= INT32_MAX && IsRawPayload(sent);
}

std::uint64_t Request::EndUs() const {
    if (finished_us > 0) return finished_us;
    return freed_us > 0 ? freed_us : last_us;
}

std::uint64_t Request::TimeOuts() const {
    const auto count = std::count_if(exchanges.begin(), exchanges.end(), [](const Exchange& one) {
        return one.result == ExchangeResult::kSilent || one.result == ExchangeResult::kOpen;
    });
    // The last exchange of a cancelled request was abandoned; that of an unfinished one is unknown.
    const bool last_is_open =
        !exchanges.empty() && exchanges.back().result == ExchangeResult::kOpen && !IsFinished();
    return static_cast<std::uint64_t>(count) - (last_is_open ? 1 : 0);
}

const Payload* Request::Answer() const {
    for (auto exchange = exchanges.rbegin(); exchange != exchanges.rend(); ++exchange) {
        if (exchange->result == ExchangeResult::kAnswered && !exchange->is_functional) {
            return &exchange->answer;
        }
    }
    return nullptr;
}

bool Request::HasNegativeAnswer() const {
    for (const Exchange& exchange : exchanges) {
        if (ParseNegativeResponse(exchange.answer.bytes)) return true;
        for (const UnitAnswer& answer : exchange.answers) {
            if (ParseNegativeResponse(answer.payload.bytes)) return true;
        }
    }
    return false;
}

RawFrame RawFrameOf(const Payload& payload) {
    const Bytes& bytes = payload.bytes;
    RawFrame frame;
    frame.can_id = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                   std::uint32_t{bytes[2]} << 8 | bytes[3];
    frame.data.assign(bytes.begin() + kRawHeader, bytes.end());
    frame.is_whole = payload.IsWhole() && frame.data.size() <= kMaxFrameData;
    return frame;
}

void RequestTracker::Take(const Record& record) {
    switch (record.event) {
        case Event::kLogStart:
            Finish();
            return;
        case Event::kCopStart:
            Start(record);
            return;
        default:
            break;
    }
    const bool is_exchange = record.Has(Field::kRequestId);
    if (!is_exchange && !record.Has(Field::kCop)) return;
    const auto open = open_.find(record.U32(is_exchange ? Field::kRequestId : Field::kCop));
    if (open == open_.end() || record.event == Event::kItemDestroy) return;
    open->second.request.last_us = record.TimeUs();
    Apply(record, &open->second);
    if (record.event == Event::kCopFree) Close(open);
}

void RequestTracker::Finish() {
    while (!open_.empty())
        Close(open_.begin());
}

void RequestTracker::Start(const Record& record) {
    const std::uint32_t cop = record.U32(Field::kCop);
    if (const auto old = open_.find(cop); old != open_.end()) Close(old);
    if (open_.size() >= kMaxOpen) Close(open_.begin());
    Request& request = open_[cop].request;
    request.process = record.U32(Field::kProcess);
    request.module = record.U32(Field::kModule);
    request.link = record.U32(Field::kLink);
    request.cop = cop;
    request.type = record.U32(Field::kCopType);
    request.sent = PayloadOf(record, Field::kTxLength);
    request.send_cycles = record.was_cut ? 1 : record.U32(Field::kSendCycles);
    request.queued_us = record.TimeUs();
    request.last_us = record.TimeUs();
}

void RequestTracker::Apply(const Record& record, OpenRequest* open) {
    Request& request = open->request;
    switch (record.event) {
        case Event::kSendRecvMeta:
            request.is_raw = record.U32(Field::kIsRaw) != 0;
            request.functional_id = record.U32(Field::kFunctionalId);
            request.physical_id = record.U32(Field::kPhysicalId);
            request.response_id = record.U32(Field::kResponseId);
            return;
        case Event::kEcuCandidate:
            AppendBounded(&request.units,
                          {record.U32(Field::kPhysicalId), record.U32(Field::kResponseId)});
            return;
        case Event::kCancelRequest:
            request.cancel_requested = true;
            return;
        case Event::kCopState:
            request.state = record.U32(Field::kTo);
            if (request.started_us == 0) request.started_us = record.TimeUs();
            if (IsFinalState(request.state)) request.finished_us = record.TimeUs();
            return;
        case Event::kCopRx:
            Delivered(record, &request);
            return;
        case Event::kCopError:
            AppendBounded(&request.errors, record.U32(Field::kError));
            return;
        case Event::kNotifyEnd:
            // A raw ComPrimitive has one line per frame.
            if (!request.is_raw) AppendBounded(&request.callbacks, CallbackOf(record));
            return;
        case Event::kCopFree:
            request.freed_us = record.TimeUs();
            return;
        case Event::kRequestSent:
            Sent(record, open);
            return;
        case Event::kResponseReceived:
            Received(record, open);
            return;
        case Event::kBusyReceived:
            ++request.busy;
            request.busy_reason = record.reason;
            return;
        default:
            return;
    }
}

void RequestTracker::Sent(const Record& record, OpenRequest* open) {
    Request& request = open->request;
    if (request.exchanges.size() >= kMaxPerRequest) return;
    // This line has fewer fields before the bytes, so more of a long request is preserved.
    if (record.data.size() > request.sent.bytes.size()) {
        request.sent = PayloadOf(record, Field::kTxLength);
    }
    Exchange exchange;
    // An answer cannot precede its request, whatever the order of the lines.
    exchange.sent_us = open->early_response
                           ? std::min(record.TimeUs(), open->early_response->TimeUs())
                           : record.TimeUs();
    FillAddresses(record, request, &exchange);
    request.exchanges.push_back(std::move(exchange));
    sink_->OnSent(request, request.exchanges.back());
    if (!open->early_response) return;
    const Record response = std::move(*open->early_response);
    open->early_response.reset();
    Answer(response, request.exchanges.back().sent_us, &request);
}

void RequestTracker::Received(const Record& record, OpenRequest* open) {
    Request& request = open->request;
    const bool is_awaited =
        !request.exchanges.empty() && request.exchanges.back().result == ExchangeResult::kOpen;
    if (is_awaited) {
        Answer(record, record.TimeUs(), &request);
    } else {
        if (open->early_response) ++request.stray_answers;
        open->early_response = record;
    }
}

void RequestTracker::Answer(const Record& record, std::uint64_t time_us, Request* request) {
    Exchange& exchange = request->exchanges.back();
    exchange.answered_us = time_us;
    const std::uint32_t wait_time = record.U32(Field::kWaitTime);
    if (wait_time == kWaitTimeSilent) {
        exchange.result = ExchangeResult::kSilent;
    } else if (wait_time == kWaitTimeError) {
        exchange.result = ExchangeResult::kError;
    } else {
        exchange.result = ExchangeResult::kAnswered;
        Payload payload = PayloadOf(record, Field::kRxLength);
        if (wait_time == kWaitTimeFunctional) {
            SplitAnswers(payload, &exchange);
        } else {
            exchange.answer = std::move(payload);
        }
    }
    sink_->OnAnswer(*request, exchange);
}

void RequestTracker::Delivered(const Record& record, Request* request) {
    ++request->results;
    Payload payload = PayloadOf(record, Field::kRxLength);
    if (request->is_raw) {
        if (IsRawPayload(payload)) {
            RawFrame frame = RawFrameOf(payload);
            frame.time_us = record.TimeUs();
            sink_->OnRawFrame(*request, frame);
        }
        return;
    }
    if (request->exchanges.empty() || !request->exchanges.back().is_functional) return;
    Exchange& exchange = request->exchanges.back();
    const std::uint32_t position = record.U32(Field::kUnique);
    if (HasUnit(exchange.answers, position)) return;
    if (exchange.answers.size() >= kMaxPerRequest) return;
    exchange.answers.push_back({position, std::move(payload)});
    sink_->OnLateAnswer(*request, exchange.answers.back(), record.TimeUs());
}

void RequestTracker::Close(std::map<std::uint32_t, OpenRequest>::iterator open) {
    Request& request = open->second.request;
    if (open->second.early_response) ++request.stray_answers;
    if (request.SendsRawFrame()) {
        request.is_raw = true;
        RawFrame frame = RawFrameOf(request.sent);
        frame.time_us = request.freed_us;
        frame.is_sent = true;
        sink_->OnRawFrame(request, frame);
    }
    sink_->OnRequest(request);
    open_.erase(open);
}

std::string ComPrimitiveTypeText(std::uint32_t type) {
    switch (type) {
        case PDU_COPT_STARTCOMM:
            return "STARTCOMM";
        case PDU_COPT_STOPCOMM:
            return "STOPCOMM";
        case PDU_COPT_UPDATEPARAM:
            return "UPDATEPARAM";
        case PDU_COPT_SENDRECV:
            return "SENDRECV";
        case PDU_COPT_RESTORE_PARAM:
            return "RESTORE_PARAM";
        default:
            return "0x" + HexNumber(type, 4);
    }
}

}  // namespace dpdu::trace
