// The text of a telemetry report, and the text as the trace writes it.

#include "fuzz_support.h"
#include "link/telemetry.h"
#include "support/trace_line.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const PacketPtr packet = PacketFrom(kTypeTele, data, size);
    const MemoryUse before = LiveMemory();
    HandleTelemetryPacket(*packet);
    Require(LiveMemory().blocks == before.blocks);

    char line[8192];
    TraceWriter writer(line, sizeof line);
    writer.Escaped("", reinterpret_cast<const char*>(packet->Bytes()) + 8, packet->length - 8,
                   4096);
    Require(writer.Length() <= 4096);
    return 0;
}
