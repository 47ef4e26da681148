// Traffic on the CAN bus, as far as a trace shows it.
//
// The dongle handles ISO-TP itself: the trace contains whole requests and answers, not frames. This
// code splits them into the frames that must have carried them. It omits what is not known: flow
// control, padding, the time of each frame, responses that the dongle did not pass on.

#ifndef TOOLS_DPDU_TRACE_BUS_MESSAGES_H
#define TOOLS_DPDU_TRACE_BUS_MESSAGES_H

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "trace/requests.h"

namespace dpdu::trace {

struct BusMessage {
    std::uint64_t time_us = 0;
    std::uint32_t bus = 0;  // number of the module in order of appearance
    bool is_sent = false;
    std::uint32_t can_id = 0;
    std::uint32_t peer_id = 0;   // of what the other side sends; 0: unknown, or several
    bool is_raw = false;         // one frame, exactly as recorded
    std::uint32_t cop = 0;       // of the request
    std::uint32_t length = 0;    // of the whole payload
    std::uint32_t recorded = 0;  // if less, the last frames are missing
    Bytes payload;               // without the identifier
    std::vector<Bytes> frames;
};

// ISO 15765-2 frames with normal addressing on classical CAN, without padding. For a truncated
// payload, only the frames that are fully known.
std::vector<Bytes> IsoTpFrames(const Payload& payload);

class BusMessages : public RequestSink {
public:
    using Handler = std::function<void(const BusMessage&)>;
    explicit BusMessages(Handler handler) : handler_(std::move(handler)), tracker_(this) {}

    void Take(const Record& record) { tracker_.Take(record); }
    void Finish() { tracker_.Finish(); }

    // Number of payloads with missing frames, and of invalid raw frames.
    std::uint64_t Incomplete() const { return incomplete_; }
    std::uint64_t NoFrames() const { return no_frames_; }

    void OnSent(const Request& request, const Exchange& exchange) override;
    void OnAnswer(const Request& request, const Exchange& exchange) override;
    void OnLateAnswer(const Request& request, const UnitAnswer& answer,
                      std::uint64_t time_us) override;
    void OnRawFrame(const Request& request, const RawFrame& frame) override;

private:
    BusMessage MessageOf(const Request& request, std::uint64_t time_us);
    void HandOn(BusMessage message, const Payload& payload);

    Handler handler_;
    RequestTracker tracker_;
    std::map<std::uint32_t, std::uint32_t> buses_;  // by module
    std::uint64_t incomplete_ = 0;
    std::uint64_t no_frames_ = 0;
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_BUS_MESSAGES_H
