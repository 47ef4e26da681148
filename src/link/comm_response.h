#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "link/packet.h"

// How the answers of a dongle stand on the wire. Counts and lengths inside a packet are cut to
// what the packet really holds.
namespace tarvik {

inline constexpr std::uint32_t kWaitTimeNoAnswer = 0xFFFFFFFF;  // the control unit was silent
inline constexpr std::uint32_t kWaitTimeMulti = 0xFFFFFFFD;     // marks the multi form

inline constexpr std::size_t kBusyRequestId = 8;
inline constexpr std::size_t kBusyReason = 12;  // to the packet's end or the first NUL
inline constexpr std::uint32_t kBusyMinSize = 12;

// CRES. In the multi form `data_length` is the number of entries that follow.
struct CommResponseWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint32_t wait_time;
    std::uint32_t data_length;
    std::uint32_t req_id;
};
static_assert(offsetof(CommResponseWire, wait_time) == 8);
static_assert(offsetof(CommResponseWire, data_length) == 12);
static_assert(offsetof(CommResponseWire, req_id) == 16);
static_assert(sizeof(CommResponseWire) == 20);

// Reads a CRES in place; lives no longer than the packet.
class CommResponseView {
public:
    static std::optional<CommResponseView> Of(const Packet& packet);  // none: too short

    std::uint32_t RequestId() const { return wire_.req_id; }
    std::uint32_t WaitTime() const { return wire_.wait_time; }
    bool IsMulti() const { return wire_.wait_time == kWaitTimeMulti; }
    // The response bytes; of the multi form, all its entries as they stand.
    ByteView Data() const { return data_; }

private:
    friend class CommResponseEntries;

    CommResponseWire wire_{};
    ByteView data_{};
};

struct CommResponseEntry {
    std::uint32_t id;
    ByteView data;
};

// Walks the entries of a CRES in multi form.
class CommResponseEntries {
public:
    explicit CommResponseEntries(const CommResponseView& response);

    bool Next(CommResponseEntry* entry);
    std::uint32_t Count() const;  // of those not yet walked

private:
    ByteView rest_;
    std::uint32_t announced_;
};

}  // namespace tarvik
