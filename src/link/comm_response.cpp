#include "link/comm_response.h"

#include <algorithm>
#include <cstring>

namespace tarvik {

static constexpr std::size_t kEntryHeaderSize = 8;  // id and length
static constexpr std::size_t kEntryAlignment = 8;

std::optional<CommResponseView> CommResponseView::Of(const Packet& packet) {
    if (packet.length < sizeof(CommResponseWire)) return std::nullopt;
    CommResponseView view;
    std::memcpy(&view.wire_, packet.Bytes(), sizeof view.wire_);
    const std::size_t present = packet.length - sizeof view.wire_;
    view.data_.data = packet.Bytes() + sizeof view.wire_;
    view.data_.size =
        view.IsMulti() ? present : std::min<std::size_t>(view.wire_.data_length, present);
    return view;
}

CommResponseEntries::CommResponseEntries(const CommResponseView& response)
    : rest_(response.data_), announced_(response.wire_.data_length) {}

bool CommResponseEntries::Next(CommResponseEntry* entry) {
    if (announced_ == 0 || rest_.size < kEntryHeaderSize) return false;
    const std::size_t present = rest_.size - kEntryHeaderSize;
    const std::size_t length = std::min<std::size_t>(LoadU32(rest_.data + 4), present);
    *entry = {LoadU32(rest_.data), {rest_.data + kEntryHeaderSize, length}};

    // The last entry's padding may be missing.
    const std::size_t padded =
        (kEntryHeaderSize + length + kEntryAlignment - 1) & ~(kEntryAlignment - 1);
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
