#pragma once

#include <cstdint>

namespace tarvik {

struct LinkLimits {
    std::int32_t wait_slice_ms;        // how late a sleeping thread sees a flag or the tick change
    std::uint32_t dongle_grace_ms;     // what a dongle gets on top of the link's own time-out
    std::uint32_t answer_timeout_ms;   // for a CRES, in each attempt
    std::uint64_t busy_limit_ms;       // for an attempt that is answered by BUSY
    std::uint64_t reassembly_idle_ms;  // after which an unfinished packet may make way for another
};
const LinkLimits& GetLinkLimits();

}  // namespace tarvik
