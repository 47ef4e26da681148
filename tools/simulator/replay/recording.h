// A vehicle as a trace shows it: requests, their answers and their times.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "protocol/request.h"
#include "replay/trace_reader.h"
#include "vehicle/raw_traffic.h"
#include "vehicle/timeline.h"

namespace brennix {

// One control unit's part of a multi-form answer.
struct RecordedEntry {
    std::optional<std::uint32_t> response_id;  // none: the request has no such position
    std::uint32_t position = 0;                // in the request
    Bytes data;
};

// What the dongle sent for one request.
struct RecordedPacket {
    enum class Kind { kBusy, kAnswer, kMultiAnswer };

    Kind kind = Kind::kAnswer;
    std::uint32_t at_ms = 0;             // after the request
    std::uint32_t wait_time = 0;         // kAnswer
    Bytes data;                          // kAnswer: the response; kBusy: the reason
    std::vector<RecordedEntry> entries;  // kMultiAnswer
    bool is_cut = false;                 // there were more entries
};

struct RecordedExchange {
    std::size_t line = 0;  // of the trace
    bool is_multi = false;
    std::uint32_t request_id = 0;   // physical CAN id; in multi form the functional one
    std::uint32_t response_id = 0;  // single form
    std::size_t size = 0;           // of the request
    Bytes data;                     // the whole request, or the first part that the trace has
    std::vector<RecordedPacket> packets;

    bool Matches(const Request& request) const;
    std::string Describe() const;
};

struct Recording {
    std::string path;
    std::vector<RecordedExchange> exchanges;  // in the order of the trace
    std::vector<TimedFrame> frames;
    std::vector<TimelineEvent> telemetry;

    std::size_t lines = 0;
    std::vector<std::size_t> damaged_lines;
    std::vector<std::size_t> unknown_lines;
    std::vector<std::size_t> cut_answers;      // lines of answers that are incomplete in the trace
    std::vector<std::size_t> strange_answers;  // lines of answers without a request

    bool IsEmpty() const { return exchanges.empty() && frames.empty() && telemetry.empty(); }
    // Appends what a later process did; its damage reports are dropped.
    void Append(Recording next);
    // One line: what was found and how much was skipped.
    std::string Summary() const;
};

struct RecordingOptions {
    double speed = 1;                  // 2: twice as fast; 0: no waiting at all
    std::optional<std::uint8_t> fill;  // for the missing bytes of a cut answer; none: no answer
};

Recording MakeRecording(const TraceText& trace, const RecordingOptions& options);
// Of files that have nothing to play, only says on standard error that they are skipped. Throws
// std::runtime_error if a file cannot be read, or if none has anything to play.
std::vector<Recording> LoadRecordings(const std::vector<std::string>& paths,
                                      const RecordingOptions& options);

// Gives each request its answers in recorded order; the last one repeats.
class RecordingPlayer {
public:
    explicit RecordingPlayer(const Recording* recording);

    // Null: the request is not in the trace.
    const RecordedExchange* Next(const Request& request);
    void Rewind();

    std::size_t Played() const { return played_; }
    std::size_t Unknown() const { return unknown_; }

private:
    struct Series {
        std::vector<const RecordedExchange*> exchanges;
        std::size_t next = 0;
    };

    // Series whose requests start with the same bytes.
    std::map<std::string, std::vector<Series>> series_;
    std::size_t played_ = 0;
    std::size_t unknown_ = 0;
};

// The recorded packet as the answer to `request`: with its id, and positions in it.
Bytes MakeRecorded(const RecordedPacket& recorded, const Request& request);

// "7E0 to 7E8: 22F190", "functional 7DF: 22F190"
std::string DescribeAsked(const Request& request);

}  // namespace brennix
