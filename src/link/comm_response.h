#pragma once

#include <cstdint>
#include <optional>

#include "link/packet.h"

// Reading the answers of a dongle. Counts and lengths inside a packet are limited to what the
// packet holds.
namespace tarvik {

// Reads a CRES in place; lives no longer than the packet.
class CommResponseView {
public:
    static std::optional<CommResponseView> Of(const Packet& packet);  // none: too short

    std::uint32_t RequestId() const { return wire_.req_id; }
    std::uint32_t WaitTime() const { return wire_.wait_time; }
    bool IsMulti() const { return wire_.wait_time == kWaitTimeMulti; }
    // The response bytes. Multi form: all entries, unparsed.
    ByteView Data() const { return data_; }
    // As many of them as the length field says, whatever the form.
    ByteView CountedData() const;

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
