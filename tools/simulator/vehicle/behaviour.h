// How answers are late, missing or wrong. A behaviour can be given to the dongle, to a control unit
// and to a single answer of one; the more special one wins, setting by setting.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brennix {

struct Behaviour {
    // On the bus: what a control unit does.
    std::optional<std::uint32_t> delay_ms;             // before its (first) answer
    std::optional<bool> silent;                        // it never answers
    std::optional<std::uint8_t> negative;              // it answers with this response code
    std::optional<std::uint32_t> pending;              // "response pending" this many times first
    std::optional<std::uint32_t> pending_interval_ms;  // time from one to the next, default 20
    std::optional<std::uint32_t> repeat;               // it answers this many times more

    // On the port: what the dongle does.
    std::optional<std::uint32_t> busy;              // BUSY packets before the answer
    std::optional<std::uint32_t> busy_interval_ms;  // time from one to the next, default 0
    std::optional<std::string> busy_reason;
    std::optional<bool> lost;                // no CRES at all
    std::optional<bool> wrong_id;            // the CRES carries another request id
    std::optional<std::uint32_t> stray;      // CRES packets with foreign ids before the answer
    std::optional<std::uint32_t> duplicate;  // further copies of the CRES
    std::optional<std::uint32_t> fragment;   // the longest packet; longer ones go in fragments
    std::optional<std::uint32_t> garbage;    // noise bytes (and a SYNC) before the answer
    std::optional<bool> seal;                // the answer is sealed (CRYP)

    // In a CRES of the multi form, behind the others: entries whose ids the request does not have.
    std::optional<std::uint32_t> foreign_entries;

    // Applies to this many requests and then no more; absent: to all.
    std::optional<std::uint32_t> for_requests;

    bool IsEmpty() const { return *this == Behaviour{}; }
    bool operator==(const Behaviour&) const = default;

    // Takes over each setting that `special` has.
    void Override(const Behaviour& special);
    // Counts one request that this behaviour was applied to; clears it after the last.
    void CountRequest();
};

}  // namespace brennix
