// A received BUSY, and its reason in the trace.

#include "fuzz_support.h"
#include "support/trace_line.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

namespace {

void CheckEscaping(const Packet& packet) {
    constexpr std::size_t kMost = 510;
    char line[1024];
    TraceWriter writer(line, sizeof line);
    writer.Escaped(reinterpret_cast<const char*>(packet.Bytes()) + 8, packet.length - 8, kMost);
    Require(writer.Length() <= kMost);
    bool escaped = false;
    for (std::size_t i = 0; i < writer.Length(); ++i) {
        Require(line[i] >= 32 && line[i] <= 126);
        if (escaped) Require(std::strchr("\"\\tnr", line[i]) != nullptr);
        if (!escaped) Require(line[i] != '"');
        escaped = !escaped && line[i] == '\\';
    }
    Require(!escaped);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Dongle dongle;
    PacketPtr packet = PacketFrom(kTypeBusy, data, size);
    CheckEscaping(*packet);
    const std::uint32_t tag = packet->length < 12 ? kNoTag : packet->U32(8);
    const std::uint32_t length = packet->length;
    Require(EnqueueReceivedPacket(&dongle, packet));
    packet = QueueRemoveByTag(&dongle.rx, tag);
    Require(packet != nullptr && packet->length == length);
    Require(MatchTypeAndId(*packet, {kTypeBusy, tag}) == (length >= 12));
    return 0;
}
