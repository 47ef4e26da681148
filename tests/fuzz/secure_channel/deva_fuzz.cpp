// The relay's answer to the identification, after its header.

#include "secure_fuzz.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    LoadKeys();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Dongle relay;
    PacketPtr packet = PacketFrom(kTypeDeva, data, size);
    const bool whole = packet->length >= 16;
    const std::uint32_t sent = whole ? packet->U32(8) : 0;
    Require(AppendPacket(&relay.rx, packet, kNoTag));
    std::uint32_t status = ~sent;
    Require(CloudSecIdentify(&relay, &status) == whole);
    Require(status == (whole ? sent : ~sent));
    const PacketPtr devi = TakePacket(&relay.tx, 0);
    Require(devi != nullptr && devi->type == kTypeDevi && devi->length == 84);
    return 0;
}
