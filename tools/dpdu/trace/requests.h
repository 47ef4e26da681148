// Reassembles ComPrimitives and their history from the lines of a trace.

#ifndef TOOLS_DPDU_TRACE_REQUESTS_H
#define TOOLS_DPDU_TRACE_REQUESTS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "trace/record.h"

namespace dpdu::trace {

// Bytes that the trace may have truncated.
struct Payload {
    Bytes bytes;
    std::uint32_t length = 0;

    bool IsWhole() const { return bytes.size() == length; }
};

// A control unit that may answer; its index is the position in the link's table.
struct ControlUnit {
    std::uint32_t request_id = 0;
    std::uint32_t response_id = 0;
};

// One control unit's part of the answer to a functional request.
struct UnitAnswer {
    std::uint32_t position = 0;
    Payload payload;
};

enum class ExchangeResult {
    kOpen,      // nothing received (yet)
    kAnswered,  // an answer, or the answers to a functional request
    kSilent,    // time-out in the dongle
    kError,     // the dongle reported an error
};

// One attempt of a request: what was sent to the dongle and what came back.
struct Exchange {
    std::uint64_t sent_us = 0;
    std::uint64_t answered_us = 0;  // 0: never
    bool is_functional = false;
    std::uint32_t request_id = 0;   // functional request: the functional identifier
    std::uint32_t response_id = 0;  // physical request only
    std::uint32_t timeout_ms = 0;
    ExchangeResult result = ExchangeResult::kOpen;
    Payload answer;                   // physical request only
    std::vector<UnitAnswer> answers;  // functional request: as far as the trace contains them
    bool has_all_answers = false;

    std::uint64_t WaitedUs() const { return answered_us > sent_us ? answered_us - sent_us : 0; }
};

// Time spent in the application's callback.
struct CallbackTime {
    std::uint64_t begin_us = 0;
    std::uint64_t length_us = 0;
};

struct Request {
    std::uint32_t process = 0;
    std::uint32_t module = 0;
    std::uint32_t link = 0;
    std::uint32_t cop = 0;
    std::uint32_t type = 0;
    bool is_raw = false;
    Payload sent;  // as passed by the application
    std::uint32_t send_cycles = 0;
    std::uint32_t functional_id = 0;
    std::uint32_t physical_id = 0;
    std::uint32_t response_id = 0;
    std::vector<ControlUnit> units;

    std::uint64_t queued_us = 0;
    std::uint64_t started_us = 0;   // when the worker took it; 0: never
    std::uint64_t finished_us = 0;  // when it reached its final state; 0: never
    std::uint64_t freed_us = 0;     // 0: never
    std::uint64_t last_us = 0;      // of its last line
    std::uint32_t state = 0;        // the last reported one; 0: none

    std::vector<Exchange> exchanges;
    std::vector<CallbackTime> callbacks;
    std::vector<std::uint32_t> errors;
    std::uint64_t results = 0;  // delivered to the application
    std::uint64_t busy = 0;
    std::string busy_reason;          // of the last one
    std::uint64_t stray_answers = 0;  // answers that no exchange was waiting for
    bool cancel_requested = false;

    bool IsSendRecv() const;
    bool IsCancelled() const;
    bool IsFinished() const;
    // STARTCOMM on a raw link sends a frame; no state is reported for it.
    bool SendsRawFrame() const;
    std::uint64_t EndUs() const;
    std::uint64_t DurationUs() const { return EndUs() > queued_us ? EndUs() - queued_us : 0; }
    // Number of times it was sent again because no matching answer had come.
    std::uint64_t Retries() const { return exchanges.empty() ? 0 : exchanges.size() - 1; }
    std::uint64_t TimeOuts() const;
    // The last answer to a physical request; null: none.
    const Payload* Answer() const;
    bool HasNegativeAnswer() const;
};

struct RawFrame {
    std::uint64_t time_us = 0;
    bool is_sent = false;
    std::uint32_t can_id = 0;
    Bytes data;
    bool is_whole = true;  // false: too long for a frame, or truncated in the trace
};

// The payload is the identifier, most significant byte first, and the data; it contains at least
// the identifier.
RawFrame RawFrameOf(const Payload& payload);

// Called for all events in the order in which they happened. References are valid only during the
// call.
class RequestSink {
public:
    virtual ~RequestSink() = default;
    virtual void OnSent(const Request&, const Exchange&) {}
    virtual void OnAnswer(const Request&, const Exchange&) {}
    // An answer to a functional request that is not part of its exchange.
    virtual void OnLateAnswer(const Request&, const UnitAnswer&, std::uint64_t) {}
    virtual void OnRawFrame(const Request&, const RawFrame&) {}
    // The request is complete, or the trace has ended.
    virtual void OnRequest(const Request&) {}
};

// Keeps only the ComPrimitives in execution.
class RequestTracker {
public:
    explicit RequestTracker(RequestSink* sink) : sink_(sink) {}

    void Take(const Record& record);
    // At the end of a trace: passes on the unfinished ones.
    void Finish();

private:
    struct OpenRequest {
        Request request;
        std::optional<Record> early_response;  // its line precedes that of its request
    };

    void Start(const Record& record);
    void Apply(const Record& record, OpenRequest* open);
    void Sent(const Record& record, OpenRequest* open);
    void Received(const Record& record, OpenRequest* open);
    void Answer(const Record& record, std::uint64_t time_us, Request* request);
    void Delivered(const Record& record, Request* request);
    void Close(std::map<std::uint32_t, OpenRequest>::iterator open);

    RequestSink* sink_;
    std::map<std::uint32_t, OpenRequest> open_;  // by handle, which is also the request id
};

// "SENDRECV"; a number for an unknown type.
std::string ComPrimitiveTypeText(std::uint32_t type);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_REQUESTS_H
