// How answers are late, missing or wrong. The dongle, a control unit and a single answer can each
// have a behaviour; the more specific one wins, setting by setting.

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
    std::optional<std::uint32_t> repeat;               // this many further answers

    // On the port: what the dongle does.
    std::optional<std::uint32_t> busy;              // BUSY packets before the answer
    std::optional<std::uint32_t> busy_interval_ms;  // time from one to the next, default 0
    std::optional<std::string> busy_reason;
    std::optional<bool> lost;                // no CRES at all
    std::optional<bool> wrong_id;            // the CRES carries another request id
    std::optional<std::uint32_t> stray;      // CRES packets with foreign ids before the answer
    std::optional<std::uint32_t> duplicate;  // further copies of the CRES
    std::optional<std::uint32_t> fragment;   // longest packet; longer ones are fragmented
    std::optional<std::uint32_t> garbage;    // noise bytes (and a SYNC) before the answer
    std::optional<bool> seal;                // the answer is sealed (CRYP)

    // In a multi-form CRES, after the others: entries with ids that the request does not have.
    std::optional<std::uint32_t> foreign_entries;

    // Applies to this many requests only; absent: to all.
    std::optional<std::uint32_t> for_requests;

    bool IsEmpty() const { return *this == Behaviour{}; }
    bool operator==(const Behaviour&) const = default;

    // Replaces each setting that `special` has.
    void Override(const Behaviour& special);
    // Counts one request that used this behaviour; clears the behaviour after the last.
    void CountRequest();
};

}  // namespace brennix
