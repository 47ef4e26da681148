// Text forms of times, bytes and outcomes.

#ifndef TOOLS_DPDU_TRACE_TEXT_H
#define TOOLS_DPDU_TRACE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "trace/requests.h"

namespace dpdu::trace {

// Milliseconds with three decimals: "12.345".
std::string MsText(std::uint64_t time_us);

// Seconds with `places` decimals, truncated: "0.012345".
std::string SecondsText(std::uint64_t time_us, unsigned places = 6);

// As ASC logs have it, UTC: "Sun Nov 23 09:41:12.123 pm 2026".
std::string DateText(std::uint64_t since_1970_us);

// The first bytes, and the total number if there are more: "36 01 00 .. (600 bytes)".
std::string PayloadText(const Payload& payload, std::size_t most);

// The meaning of an error item's code.
std::string ErrorText(std::uint32_t code);

// "answered", "negative response requestOutOfRange (0x31) to service 0x22", "no answer", ...
std::string OutcomeText(const Request& request);

// The request's bytes; for other ComPrimitives the name of the type.
std::string RequestText(const Request& request, std::size_t most);

// "7E0:7E8", or "7DF" for a functional request; empty if nothing was sent.
std::string AddressText(const Request& request);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_TEXT_H
