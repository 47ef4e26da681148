// Puts the lines of a trace together again: ComPrimitives with what happened to them.

#ifndef TOOLS_DPDU_TRACE_REQUESTS_H
#define TOOLS_DPDU_TRACE_REQUESTS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "trace/record.h"

namespace dpdu::trace {

// Bytes of which the trace may hold only the first.
struct Payload {
    Bytes bytes;
    std::uint32_t length = 0;

    bool IsWhole() const { return bytes.size() == length; }
};

// One control unit that may answer, by its position in the link's table.
struct ControlUnit {
    std::uint32_t request_id = 0;
    std::uint32_t response_id = 0;
};

// The part of one control unit in the answer to a functional request.
struct UnitAnswer {
    std::uint32_t position = 0;
    Payload payload;
};

enum class ExchangeResult {
    kOpen,      // nothing has come (yet)
    kAnswered,  // an answer, or the answers to a functional request
    kSilent,    // the dongle has waited in vain
    kError,     // the dongle reports an error
};

// One try at a request: what was sent to the dongle and what came back.
struct Exchange {
    std::uint64_t sent_us = 0;
    std::uint64_t answered_us = 0;  // 0: not at all
    bool is_functional = false;
    std::uint32_t request_id = 0;   // the functional one of a functional request
    std::uint32_t response_id = 0;  // of a single control unit
    std::uint32_t timeout_ms = 0;
    ExchangeResult result = ExchangeResult::kOpen;
    Payload answer;                   // of a single control unit
    std::vector<UnitAnswer> answers;  // of several, as far as the trace holds them
    bool has_all_answers = false;

    std::uint64_t WaitedUs() const { return answered_us > sent_us ? answered_us - sent_us : 0; }
};

// Time that the application's callback has taken.
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
    Payload sent;  // what the application has handed over
    std::uint32_t send_cycles = 0;
    std::uint32_t functional_id = 0;
    std::uint32_t physical_id = 0;
    std::uint32_t response_id = 0;
    std::vector<ControlUnit> units;

    std::uint64_t queued_us = 0;
    std::uint64_t started_us = 0;   // 0: never; the worker has taken it
    std::uint64_t finished_us = 0;  // 0: never; the final state
    std::uint64_t freed_us = 0;     // 0: never
    std::uint64_t last_us = 0;      // its last line
    std::uint32_t state = 0;        // the last one; 0: none was reported

    std::vector<Exchange> exchanges;
    std::vector<CallbackTime> callbacks;
    std::vector<std::uint32_t> errors;
    std::uint64_t results = 0;  // delivered to the application
    std::uint64_t busy = 0;
    std::string busy_reason;          // the last one
    std::uint64_t stray_answers = 0;  // that no exchange was waiting for
    bool cancel_requested = false;

    bool IsSendRecv() const;
    bool IsCancelled() const;
    bool IsFinished() const;
    // A start of communication on a raw link sends a frame, and no state is ever reported of it.
    bool SendsRawFrame() const;
    std::uint64_t EndUs() const;
    std::uint64_t DurationUs() const { return EndUs() > queued_us ? EndUs() - queued_us : 0; }
    // Sent again because nothing fitting had come.
    std::uint64_t Retries() const { return exchanges.empty() ? 0 : exchanges.size() - 1; }
    std::uint64_t TimeOuts() const;
    // The last answer of a single control unit; null: none.
    const Payload* Answer() const;
    bool HasNegativeAnswer() const;
};

struct RawFrame {
    std::uint64_t time_us = 0;
    bool is_sent = false;
    std::uint32_t can_id = 0;
    Bytes data;
    bool is_whole = true;  // false: it was too long for a frame, or the trace holds less of it
};

// Identifier, most significant byte first, and data; the payload holds at least the identifier.
RawFrame RawFrameOf(const Payload& payload);

// Told of everything in the order in which it happened. What it is handed lives only for the call.
class RequestSink {
public:
    virtual ~RequestSink() = default;
    virtual void OnSent(const Request&, const Exchange&) {}
    virtual void OnAnswer(const Request&, const Exchange&) {}
    // An answer to a functional request that its exchange does not hold.
    virtual void OnLateAnswer(const Request&, const UnitAnswer&, std::uint64_t) {}
    virtual void OnRawFrame(const Request&, const RawFrame&) {}
    // Nothing more will happen to it, or the trace has ended.
    virtual void OnRequest(const Request&) {}
};

// Keeps the ComPrimitives that are under way and nothing else.
class RequestTracker {
public:
    explicit RequestTracker(RequestSink* sink) : sink_(sink) {}

    void Take(const Record& record);
    // At the end of a trace: hands over what has not come to its end.
    void Finish();

private:
    struct OpenRequest {
        Request request;
        std::optional<Record> early_response;  // came before the line of its request
    };

    void Start(const Record& record);
    void Apply(const Record& record, OpenRequest* open);
    void Sent(const Record& record, OpenRequest* open);
    void Received(const Record& record, OpenRequest* open);
    void Answer(const Record& record, std::uint64_t time_us, Request* request);
    void Delivered(const Record& record, Request* request);
    void Close(std::map<std::uint32_t, OpenRequest>::iterator open);

    RequestSink* sink_;
    std::map<std::uint32_t, OpenRequest> open_;  // by handle, which also is the request id
};

// "SENDRECV"; a number for a type without a name.
std::string ComPrimitiveTypeText(std::uint32_t type);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_REQUESTS_H
