// A received raw CAN frame: its tag, and the data that a receive thread would deliver.

#include "fuzz_support.h"
#include "link/raw_frame.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

namespace {

void CheckFrame(const Packet& packet) {
    const auto frame = RawFrameView::Of(packet);
    Require(frame.has_value() == (packet.length >= 16));
    if (!frame) return;
    Require(frame->CanId() == packet.U32(8));
    const std::size_t wanted = std::min<std::size_t>({packet.U16(12), 8, packet.length - 16});
    Require(frame->Data().size == wanted);
    Require(frame->Data().data == packet.Bytes() + 16);
    std::uint8_t copy[8];
    std::memcpy(copy, frame->Data().data, frame->Data().size);  // all of it may be read
    Require(std::memcmp(copy, packet.Bytes() + 16, wanted) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Dongle dongle;
    PacketPtr packet = PacketFrom(kTypeRawc, data, size);
    CheckFrame(*packet);
    const std::uint32_t length = packet->length;
    const std::uint32_t tag = length < 16 ? kNoTag : packet->U32(8);
    Require(EnqueueReceivedPacket(&dongle, packet));
    packet = QueueRemoveByTag(&dongle.rx, tag);
    Require(packet != nullptr && packet->length == length);
    return 0;
}
