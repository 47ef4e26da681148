#include "protocol/fragments.h"

#include <algorithm>

namespace brennix {

namespace {

// A sender has only a few unfinished packets at a time; more means that it loses fragments.
constexpr std::size_t kMaxUnfinished = 16;
// The longest request: header, the most entries that make sense, and 65535 request bytes.
constexpr std::uint32_t kMaxTotalLength = creq::kBody + 65536 + creq::kResponderSize * 1024;

std::string CheckHeader(ByteSpan packet, std::uint16_t index, std::uint16_t count,
                        std::uint32_t total_length) {
    if (count == 0) return "FRAG with a count of 0";
    if (index >= count) {
        return "FRAG index " + std::to_string(index) + " of only " + std::to_string(count);
    }
    if (total_length < kHeaderSize || total_length > kMaxTotalLength) {
        return "FRAG total length " + std::to_string(total_length) + " is impossible";
    }
    if (packet.size() == kFragmentHeaderSize) return "FRAG without payload";
    return {};
}

}  // namespace

void SendInFragments(ByteSpan packet, std::size_t limit,
                     const std::function<void(ByteSpan)>& send) {
    if (limit == 0 || packet.size() <= limit) {
        send(packet);
        return;
    }
    const std::size_t slice = limit - kFragmentHeaderSize;
    const std::size_t count = (packet.size() + slice - 1) / slice;
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t begin = index * slice;
        Bytes payload;
        AppendU16(&payload, static_cast<std::uint16_t>(index));
        AppendU16(&payload, static_cast<std::uint16_t>(count));
        AppendU32(&payload, static_cast<std::uint32_t>(packet.size()));
        AppendBytes(&payload, packet.subspan(begin, std::min(slice, packet.size() - begin)));
        send(MakePacket(type::kFrag, payload));
    }
}

Reassembler::Result Reassembler::Feed(ByteSpan packet) {
    if (packet.size() < kFragmentHeaderSize) {
        return {"FRAG of " + std::to_string(packet.size()) + " bytes, at least 16 expected", {}};
    }
    const std::uint16_t index = LoadU16(packet.data() + frag::kIndex);
    const std::uint16_t count = LoadU16(packet.data() + frag::kCount);
    const std::uint32_t total_length = LoadU32(packet.data() + frag::kTotalLength);
    const ByteSpan slice = packet.subspan(kFragmentHeaderSize);
    if (std::string wrong = CheckHeader(packet, index, count, total_length); !wrong.empty()) {
        return {std::move(wrong), {}};
    }
    if (index == 0) {
        if (unfinished_.size() == kMaxUnfinished) unfinished_.pop_front();
        unfinished_.push_back({total_length, count, 0, {}});
    }
    const auto match = [&](const UnfinishedPacket& entry) {
        return entry.total_length == total_length && entry.count == count &&
               entry.next_index == index;
    };
    const auto entry = std::find_if(unfinished_.begin(), unfinished_.end(), match);
    if (entry == unfinished_.end()) {
        return {"FRAG index " + std::to_string(index) + " out of order", {}};
    }
    const bool is_last = index + 1 == count;
    if (!entry->bytes.empty() && !is_last && slice.size() * index != entry->bytes.size()) {
        unfinished_.erase(entry);
        return {"FRAG payloads of one packet differ in size", {}};
    }
    if (entry->bytes.size() + slice.size() > total_length) {
        unfinished_.erase(entry);
        return {"FRAG payloads exceed the total length " + std::to_string(total_length), {}};
    }
    AppendBytes(&entry->bytes, slice);
    ++entry->next_index;
    if (!is_last) return {};

    Bytes whole = std::move(entry->bytes);
    unfinished_.erase(entry);
    if (whole.size() != total_length) {
        return {"FRAG payloads make " + std::to_string(whole.size()) + " of " +
                    std::to_string(total_length) + " bytes",
                {}};
    }
    if (PacketLength(whole) != total_length) {
        return {"reassembled packet says length " + std::to_string(PacketLength(whole)) +
                    " and has " + std::to_string(total_length),
                {}};
    }
    if (PacketType(whole) == type::kFrag) return {"FRAG inside FRAG", {}};
    return {{}, std::move(whole)};
}

}  // namespace brennix
