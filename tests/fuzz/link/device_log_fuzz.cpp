// Packets with the dongle's log text: each piece of the input follows a byte with its length.

#include "fuzz_support.h"
#include "support/device_log.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ProcessDeviceLogPacket("\n", 1);  // ends the line that the previous input left
    const MemoryUse before = LiveMemory();
    while (size > 0) {
        const std::size_t length = std::min<std::size_t>(data[0], size - 1);
        const PacketPtr packet = PacketFrom(kTypeLog, data + 1, length);
        ProcessDeviceLogPacket(reinterpret_cast<const char*>(packet->Bytes()) + 8, length);
        data += 1 + length;
        size -= 1 + length;
    }
    ProcessDeviceLogPacket("\n", 1);
    Require(LiveMemory().blocks == before.blocks);
    return 0;
}
