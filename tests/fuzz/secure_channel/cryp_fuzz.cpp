// A sealed packet. If the first byte is even, the rest follows the header as received, and must be
// refused unless the relay made it. If it is odd, the relay seals the rest, which must then be one
// whole packet.

#include "secure_fuzz.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    LoadKeys();
    Require(ShakeHands(PacketOf(Vector().nhs2)));
    return 0;
}

namespace {

const Bytes& FirstFromRelay() {
    for (const test::SealedVector& packet : Vector().packets) {
        if (!packet.from_device && packet.counter == 0) return packet.sealed;
    }
    std::abort();
}

bool IsGenuine(const Packet& packet) {
    static const Bytes& genuine = FirstFromRelay();
    return Bytes(packet.Bytes(), packet.Bytes() + packet.length) == genuine;
}

PacketPtr SealedByRelay(const std::uint8_t* plain, std::size_t size) {
    PacketPtr packet = MakePacket(kTypeCryp, static_cast<std::uint32_t>(24 + size));
    Require(cloud_session.rx_cipher.Encrypt(NonceFor(cloud_session.nonceSalt, 0),
                                            "v1|role=server|device", {plain, size},
                                            packet->Bytes() + 24, packet->Bytes() + 8));
    return packet;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const bool sealed = data[0] % 2 != 0;
    ++data;
    size = std::min<std::size_t>(size - 1, MAX_PKT_SIZE - 24);
    const MemoryUse before = LiveMemory();
    {
        PacketPtr packet = sealed ? SealedByRelay(data, size) : PacketFrom(kTypeCryp, data, size);
        const bool whole = sealed && size >= MIN_PKT_SIZE && LoadU32(data + 4) == size;
        const bool expected = sealed ? whole : IsGenuine(*packet);
        cloud_session.rxCounter = 0;
        Require(CloudSecOpen(&cloud_session, packet) == expected);
        Require(cloud_session.rxCounter == (expected ? 1u : 0u));
        if (whole) Require(std::memcmp(packet->Bytes(), data, size) == 0);
    }
    Require(LiveMemory().blocks == before.blocks);
    return 0;
}
