#include "protocol/stream_cutter.h"

#include <algorithm>
#include <array>

namespace brennix {

namespace {

constexpr std::array<std::uint8_t, kHeaderSize> kSyncBytes = {'C', 'N', 'Y', 'S', 8, 0, 0, 0};

}  // namespace

void StreamCutter::Feed(ByteSpan data, Sink* sink) {
    AppendBytes(&pending_, data);
    std::size_t used = 0;
    for (;;) {
        const std::size_t step = CutOne(ByteSpan(pending_).subspan(used), sink);
        if (step == 0) break;
        used += step;
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(used));
}

// Returns the number of bytes consumed; 0: more must arrive first.
std::size_t StreamCutter::CutOne(ByteSpan rest, Sink* sink) {
    if (!synced_) return SkipToSync(rest, sink);
    if (rest.size() < kHeaderSize) return 0;
    const std::uint32_t length = PacketLength(rest);
    if (length < kHeaderSize || length > kMaxPacketSize) {
        sink->OnBadHeader(rest.first(kHeaderSize));
        synced_ = false;
        return kHeaderSize;
    }
    if (rest.size() < length) return 0;
    sink->OnPacket(rest.first(length));
    return length;
}

std::size_t StreamCutter::SkipToSync(ByteSpan rest, Sink* sink) {
    const auto found = std::search(rest.begin(), rest.end(), kSyncBytes.begin(), kSyncBytes.end());
    if (found != rest.end()) {
        synced_ = true;  // the SYNC itself is the next packet
        const std::size_t skipped = static_cast<std::size_t>(found - rest.begin());
        if (skipped == 0) return CutOne(rest, sink);
        sink->OnNoise(rest.first(skipped));
        return skipped;
    }
    // The last bytes may be the beginning of a SYNC.
    if (rest.size() < kHeaderSize) return 0;
    const std::size_t skipped = rest.size() - (kHeaderSize - 1);
    sink->OnNoise(rest.first(skipped));
    return skipped;
}

std::size_t StreamCutter::Reset() {
    const std::size_t dropped = pending_.size();
    pending_.clear();
    synced_ = false;
    return dropped;
}

}  // namespace brennix
