// One line of a trace file: what the library wrote about one event.

#ifndef TOOLS_DPDU_TRACE_RECORD_H
#define TOOLS_DPDU_TRACE_RECORD_H

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "text/hex.h"

namespace dpdu::trace {

enum class Event {
    kLogStart,
    kLogStop,
    kCopStart,
    kSendRecvMeta,
    kExpectedResponses,
    kEcuCandidate,
    kCancelRequest,
    kCancelResult,
    kCopState,
    kCopRx,
    kCopError,
    kNotifyBegin,
    kNotifyEnd,
    kCopFree,
    kItemDestroy,
    kRequestSent,
    kResponseReceived,
    kBusyReceived,
    kCloudPacket,
    kTelemetry,
};

// The numbers of a line; true and false count as 1 and 0.
enum class Field {
    kSeq,
    kTimeUs,
    kTickMs,
    kProcess,
    kThread,
    kSession,
    kModule,
    kLink,
    kCop,
    kCopType,
    kTxLength,
    kTxHexLength,
    kSendCycles,
    kReceiveCycles,
    kIsRaw,
    kFunctionalId,
    kPhysicalId,
    kResponseId,
    kIndex,
    kUnique,
    kFrom,
    kTo,
    kAcceptance,
    kRxLength,
    kRxHexLength,
    kError,
    kBeginUs,
    kDurationUs,
    kFinalState,
    kRequestId,
    kSentFunctionalId,
    kSentPhysicalId,
    kSentResponseId,
    kTimeoutMs,
    kWaitTime,
    kLength,
    kTelemetryV,
    kTelemetryU,
    kTelemetryRt,
    kTelemetryRhz,
    kTelemetryTasks,
    kTelemetryCr,
    kTelemetryCt,
    kTelemetryCan,
    kTelemetrySi,
    kTelemetryMx,
    kTelemetryRu,
    kCount,
};

class Record {
public:
    Event event = Event::kLogStop;
    bool was_cut = false;   // longer than the library's lines: the tail is missing
    Bytes data;             // the request, response or packet, as far as it was written
    std::string reason;     // of a BUSY
    std::string direction;  // of a cloud packet
    std::string type;       // likewise, as it stands on the wire

    bool Has(Field field) const { return present_[Position(field)]; }
    // 0 when the line has no such field.
    std::int64_t Number(Field field) const { return numbers_[Position(field)]; }
    std::uint32_t U32(Field field) const { return static_cast<std::uint32_t>(Number(field)); }
    std::uint64_t TimeUs() const { return static_cast<std::uint64_t>(Number(Field::kTimeUs)); }

    void Set(Field field, std::int64_t value) {
        numbers_[Position(field)] = value;
        present_[Position(field)] = true;
    }

private:
    static constexpr std::size_t kFields = static_cast<std::size_t>(Field::kCount);
    static std::size_t Position(Field field) { return static_cast<std::size_t>(field); }

    std::array<std::int64_t, kFields> numbers_{};
    std::bitset<kFields> present_;
};

enum class LineKind { kRecord, kUnknownEvent, kDamaged };

// How every line begins. Nothing inside a line looks like it, because quotes there are escaped.
inline constexpr std::string_view kLineStart = "{\"seq\":";

// One line without its end. The record holds something only for kRecord.
LineKind ParseLine(std::string_view line, Record* record);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_RECORD_H
