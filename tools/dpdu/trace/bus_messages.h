// What went over the CAN bus, as far as a trace tells.
//
// The dongle speaks ISO-TP by itself: the trace holds whole requests and answers, not their frames.
// They are cut here into the frames that must have carried them. What cannot be known is left out:
// flow control, filling bytes, the moment of each frame, responses that the dongle kept to itself.

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
    std::uint32_t bus = 0;  // counts the modules in the order in which they appear
    bool is_sent = false;
    std::uint32_t can_id = 0;
    bool is_raw = false;         // one frame, exactly as it was
    std::uint32_t cop = 0;       // of the request
    std::uint32_t length = 0;    // of the whole payload
    std::uint32_t recorded = 0;  // less: the last frames are missing
    std::vector<Bytes> frames;
};

// The frames of ISO 15765-2 with normal addressing on classical CAN, without filling. Of a payload
// that is not whole, those that can be made of what there is.
std::vector<Bytes> IsoTpFrames(const Payload& payload);

class BusMessages : public RequestSink {
public:
    using Handler = std::function<void(const BusMessage&)>;
    explicit BusMessages(Handler handler) : handler_(std::move(handler)), tracker_(this) {}

    void Take(const Record& record) { tracker_.Take(record); }
    void Finish() { tracker_.Finish(); }

    // Payloads whose last frames are missing, and raw frames that were no frames.
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
