// Packets longer than the transport's limit travel as FRAG packets, in both directions.

#pragma once

#include <functional>
#include <list>
#include <string>

#include "protocol/layout.h"
#include "protocol/wire.h"

namespace brennix {

constexpr std::size_t kFragmentHeaderSize = frag::kSlice;

// Calls `send` with `packet`, or with its fragments if it is longer than `limit`. `limit` is above
// kFragmentHeaderSize; 0: no limit.
void SendInFragments(ByteSpan packet, std::size_t limit, const std::function<void(ByteSpan)>& send);

class Reassembler {
public:
    struct Result {
        std::string violation;  // empty: the fragment was in order
        Bytes whole;            // empty: fragments are still missing
    };

    // `packet` is a FRAG packet of any length.
    Result Feed(ByteSpan packet);
    void Reset() { unfinished_.clear(); }
    std::size_t Unfinished() const { return unfinished_.size(); }

private:
    struct UnfinishedPacket {
        std::uint32_t total_length;
        std::uint16_t count;
        std::uint16_t next_index;
        Bytes bytes;
    };

    // Links that share the port may send long packets at the same time, with fragments interleaved.
    // A fragment does not name its packet, so it goes to the oldest packet that expects it next.
    std::list<UnfinishedPacket> unfinished_;
};

}  // namespace brennix
