// Fragments from several sources while time passes. Each piece of the input is a packet: a byte
// that chooses its source, one for the seconds since the last, one for its length, its payload.

#include "fuzz_support.h"
#include "link/fragmentation.h"
#include "platform/tick.h"

using namespace tarvik;
using namespace tarvik::fuzz;

namespace {

std::uint64_t now_ms = 100000;

void Feed(const void* source, PacketPtr packet) {
    const bool fragment = packet->type == kTypeFrag;
    PacketPtr complete;
    const bool done = FragReceivePacket(source, packet, &complete);
    Require(done == (complete != nullptr));
    Require(fragment == (packet != nullptr));
    if (!done) return;
    Require(complete->length >= MIN_PKT_SIZE && complete->length <= MAX_PKT_SIZE);
    Require(complete->type != kTypeFrag);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    SetTickSource([] { return now_ms; });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kPieceHeader = 3;
    constexpr std::uint8_t kSources = 6;
    static const char sources[kSources] = {};
    const MemoryUse before = LiveMemory();
    FragInit();
    while (size >= kPieceHeader) {
        const void* source = &sources[data[0] % kSources];
        const std::uint32_t type = data[0] < 0xF0 ? kTypeFrag : kTypeCres;
        const std::size_t length = std::min<std::size_t>(data[2], size - kPieceHeader);
        now_ms += std::uint64_t{1000} * data[1];
        Feed(source, PacketFrom(type, data + kPieceHeader, length));
        data += kPieceHeader + length;
        size -= kPieceHeader + length;
    }
    FragDeinit();
    Require(LiveMemory().blocks == before.blocks);
    return 0;
}
