#include "link/comm_response.h"

#include <algorithm>
#include <cstring>

namespace tarvik {

std::optional<CommResponseView> CommResponseView::Of(const Packet& packet) {
    const auto wire = packet.Fields<CommResponseWire>();
    if (!wire) return std::nullopt;
    CommResponseView view;
    view.wire_ = *wire;
    view.data_ = packet.DataAfter<CommResponseWire>();
    if (!view.IsMulti()) view.data_ = view.CountedData();
    return view;
}

ByteView CommResponseView::CountedData() const {
    return {data_.data, std::min<std::size_t>(wire_.data_length, data_.size)};
}

CommResponseEntries::CommResponseEntries(const CommResponseView& response)
    : rest_(response.data_), announced_(response.wire_.data_length) {}

bool CommResponseEntries::Next(CommResponseEntry* entry) {
    CommResponseEntryWire wire;
    if (announced_ == 0 || rest_.size < sizeof wire) return false;
    std::memcpy(&wire, rest_.data, sizeof wire);
    const std::size_t length = std::min<std::size_t>(wire.data_length, rest_.size - sizeof wire);
    *entry = {wire.id, {rest_.data + sizeof wire, length}};

    // The last entry's padding may be missing.
    constexpr std::size_t kMask = kCommResponseAlignment - 1;
    const std::size_t padded = (sizeof wire + length + kMask) & ~kMask;
    const std::size_t step = std::min(padded, rest_.size);
    rest_.data += step;
    rest_.size -= step;
    --announced_;
    return true;
}

std::uint32_t CommResponseEntries::Count() const {
    CommResponseEntries walk = *this;
    CommResponseEntry entry;
    std::uint32_t count = 0;
    while (walk.Next(&entry))
        ++count;
    return count;
}

}  // namespace tarvik
