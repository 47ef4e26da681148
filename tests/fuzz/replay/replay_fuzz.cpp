// A trace file, read like one for a replay. Each line is accounted for, and each request found can
// be asked.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "replay/recording.h"
#include "replay/trace_reader.h"

using namespace brennix;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

struct TextSize {
    std::size_t lines = 0;
    std::size_t parts = 0;  // a line that was cut continues with the next one
};

TextSize Measure(std::string_view text) {
    TextSize size;
    for (; !text.empty(); ++size.lines) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        if (!line.empty() && line != "\r") ++size.parts;
        for (std::size_t at = 0; (at = line.find("{\"seq\":", at + 1)) != std::string_view::npos;)
            ++size.parts;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return size;
}

bool AreLinesOf(const TraceText& trace, const std::vector<std::size_t>& lines) {
    return std::all_of(lines.begin(), lines.end(),
                       [&](std::size_t line) { return line >= 1 && line <= trace.lines; });
}

// Everything in the file is an event, damaged or unknown.
void CheckTrace(const TraceText& trace, std::string_view text) {
    const TextSize size = Measure(text);
    Require(trace.lines == size.lines);
    Require(trace.events.size() + trace.damaged.size() + trace.unknown.size() == size.parts);
    Require(AreLinesOf(trace, trace.damaged) && AreLinesOf(trace, trace.unknown));
    const auto earlier = [](const TraceEvent& a, const TraceEvent& b) {
        return a.sequence < b.sequence;
    };
    Require(std::is_sorted(trace.events.begin(), trace.events.end(), earlier));
}

std::size_t Count(const TraceText& trace, std::string_view name) {
    const auto has_name = [&](const TraceEvent& event) { return event.name == name; };
    return static_cast<std::size_t>(
        std::count_if(trace.events.begin(), trace.events.end(), has_name));
}

// Each event about the bus is played or reported as left out.
void CheckCounts(const Recording& recording, const TraceText& trace) {
    std::size_t packets = 0;
    for (const RecordedExchange& exchange : recording.exchanges)
        packets += exchange.packets.size();
    Require(packets + recording.strange_answers.size() ==
            Count(trace, "comm_res_received") + Count(trace, "busy_received"));

    const std::size_t requests = Count(trace, "comm_req_sent");
    const std::size_t damaged = recording.damaged_lines.size() - trace.damaged.size();
    Require(recording.damaged_lines.size() >= trace.damaged.size());
    Require(recording.exchanges.size() <= requests);
    Require(recording.exchanges.size() + damaged >= requests);
    Require(recording.exchanges.size() + recording.frames.size() + damaged <=
            requests + Count(trace, "cop_rx"));

    const std::size_t reports = Count(trace, "telemetry");
    Require(recording.telemetry.size() <= reports);
    Require(recording.telemetry.size() + recording.cut_answers.size() >= reports);

    Require(recording.lines == trace.lines && recording.unknown_lines == trace.unknown);
    Require(AreLinesOf(trace, recording.damaged_lines));
    Require(AreLinesOf(trace, recording.cut_answers));
    Require(AreLinesOf(trace, recording.strange_answers));
    Require(std::is_sorted(recording.damaged_lines.begin(), recording.damaged_lines.end()));
    Require(recording.Summary().find('\n') == std::string::npos);
}

void CheckContents(const Recording& recording) {
    for (const TimedFrame& frame : recording.frames)
        Require(frame.frame.data.size() <= kMaxFrameBytes);
    for (const TimelineEvent& report : recording.telemetry) {
        Require(PacketType(report.packet) == type::kTele);
        Require(PacketLength(report.packet) == report.packet.size());
    }
    for (const RecordedExchange& exchange : recording.exchanges) {
        Require(exchange.data.size() <= exchange.size && exchange.size <= 0xFFFF);
        Require(exchange.Describe().find('\n') == std::string::npos);
    }
}

void RequireNoWaiting(const Recording& recording) {
    for (const TimedFrame& frame : recording.frames)
        Require(frame.at_ms == 0);
    for (const TimelineEvent& report : recording.telemetry)
        Require(report.at_ms == 0);
    for (const RecordedExchange& exchange : recording.exchanges) {
        for (const RecordedPacket& packet : exchange.packets)
            Require(packet.at_ms == 0);
    }
}

bool IsWhole(const RecordedExchange& exchange) { return exchange.data.size() == exchange.size; }

// Asks every control unit that answered.
Request Ask(const RecordedExchange& exchange, ByteSpan data) {
    Request request;
    request.id = 0x01020304;
    request.is_multi = exchange.is_multi;
    request.data = data;
    if (!exchange.is_multi) {
        request.physical_id = exchange.request_id;
        request.response_id = exchange.response_id;
        return request;
    }
    request.functional_id = exchange.request_id;
    for (const RecordedPacket& packet : exchange.packets) {
        for (const RecordedEntry& entry : packet.entries) {
            if (entry.response_id) request.responders.push_back({0, *entry.response_id});
        }
    }
    return request;
}

void CheckAnswer(const RecordedPacket& recorded, const Request& request) {
    const Bytes packet = MakeRecorded(recorded, request);
    const bool is_busy = recorded.kind == RecordedPacket::Kind::kBusy;
    Require(PacketType(packet) == (is_busy ? type::kBusy : type::kCres));
    Require(PacketLength(packet) == packet.size());
    Require(LoadU32(packet.data() + (is_busy ? 8 : 16)) == request.id);
    if (is_busy) return;
    const std::uint32_t counted = LoadU32(packet.data() + 12);
    if (recorded.kind == RecordedPacket::Kind::kAnswer) {
        Require(counted == recorded.data.size() && packet.size() == 20 + counted);
    } else if (request.is_multi) {
        Require(counted == recorded.entries.size());
    }
}

// The file's own requests in the file's order get the file's answers, and again from the start.
void Play(const Recording& recording) {
    const auto& exchanges = recording.exchanges;
    const bool all_are_whole = std::all_of(exchanges.begin(), exchanges.end(), IsWhole);
    RecordingPlayer player(&recording);
    for (int pass = 0; pass < 2; ++pass) {
        for (const RecordedExchange& exchange : exchanges) {
            Bytes data = exchange.data;
            data.resize(exchange.size);
            const Request request = Ask(exchange, data);
            const RecordedExchange* found = player.Next(request);
            Require(found != nullptr && found->Matches(request));
            Require(found == &exchange || !all_are_whole);
            for (const RecordedPacket& packet : exchange.packets)
                CheckAnswer(packet, request);
        }
        player.Rewind();
    }
    Require(player.Played() == 2 * exchanges.size() && player.Unknown() == 0);
    const Bytes too_long(0x10000);
    Request request;
    request.data = too_long;
    Require(player.Next(request) == nullptr && player.Unknown() == 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::istringstream file(text);
    const TraceText trace = ReadTrace(&file);
    CheckTrace(trace, text);
    const Recording in_time = MakeRecording(trace, {});
    const Recording at_once = MakeRecording(trace, {.speed = 0, .fill = 0xAA});
    for (const Recording* recording : {&in_time, &at_once}) {
        CheckCounts(*recording, trace);
        CheckContents(*recording);
        Play(*recording);
    }
    RequireNoWaiting(at_once);
    return 0;
}
