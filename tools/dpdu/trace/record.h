// One line of a trace file: one event.

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

// Numeric fields of a line; true and false are 1 and 0.
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
    bool was_cut = false;   // truncated by the library: the tail is missing
    Bytes data;             // request, response or packet, as far as it was recorded
    std::string reason;     // of a BUSY packet
    std::string direction;  // of a cloud packet
    std::string type;       // of a cloud packet, as sent

    bool Has(Field field) const { return present_[Position(field)]; }
    // 0 if the line has no such field.
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

// The start of every line. It cannot occur inside a line, because quotes are escaped there.
inline constexpr std::string_view kLineStart = "{\"seq\":";

// Parses one line without its line end. The record is valid only for kRecord.
LineKind ParseLine(std::string_view line, Record* record);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_RECORD_H
