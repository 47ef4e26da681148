// How times, bytes and outcomes are shown.

#ifndef TOOLS_DPDU_TRACE_TEXT_H
#define TOOLS_DPDU_TRACE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "trace/requests.h"

namespace dpdu::trace {

// Milliseconds with three places: "12.345".
std::string MsText(std::uint64_t time_us);

// Seconds with `places` places of the microseconds, without rounding: "0.012345".
std::string SecondsText(std::uint64_t time_us, unsigned places = 6);

// The first bytes with their number when there are more: "36 01 00 .. (600 bytes)".
std::string PayloadText(const Payload& payload, std::size_t most);

// What an error item's code means.
std::string ErrorText(std::uint32_t code);

// "answered", "negative response requestOutOfRange (0x31) to service 0x22", "no answer", ...
std::string OutcomeText(const Request& request);

// What was asked for: the request's bytes, or the name of what it was instead.
std::string RequestText(const Request& request, std::size_t most);

// "7E0:7E8", or "7DF" for a functional request; empty when nothing was sent.
std::string AddressText(const Request& request);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_TEXT_H
