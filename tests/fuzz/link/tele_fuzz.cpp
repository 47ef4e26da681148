// The text of a telemetry report: its values, its tasks, and the text as the trace writes it.

#include "fuzz_support.h"
#include "link/telemetry.h"
#include "support/trace_line.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

namespace {

// Stays one string between the quotes of a JSON line: printable, every quote escaped, no escape
// left open.
void RequireInsideOfAString(const TraceWriter& text) {
    bool escaping = false;
    for (std::size_t i = 0; i < text.Length(); ++i) {
        const char character = text.Data()[i];
        Require(character >= 32 && character <= 126);
        Require(escaping || character != '"');
        escaping = !escaping && character == '\\';
    }
    Require(!escaping);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kLongestText = 4096;
    const PacketPtr packet = PacketFrom(kTypeTele, data, size);
    const MemoryUse before = LiveMemory();
    HandleTelemetryPacket(*packet);
    Require(LiveMemory().blocks == before.blocks);

    char line[2 * kLongestText];
    TraceWriter writer(line, sizeof line);
    const bool is_whole =
        writer.Escaped(reinterpret_cast<const char*>(packet->Bytes()) + MIN_PKT_SIZE,
                       packet->length - MIN_PKT_SIZE, kLongestText);
    Require(writer.Length() <= kLongestText);
    Require(is_whole || writer.Length() + 1 >= kLongestText);
    RequireInsideOfAString(writer);
    return 0;
}
