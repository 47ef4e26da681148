// The relay's handshake message, after its header. Only the genuine message establishes a session,
// whatever its unread bytes are.

#include "secure_fuzz.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    LoadKeys();
    Require(
        ShakeHands(PacketOf(Vector().nhs2)));  // the queues keep the memory for their first packet
    CloudSecClearSession();
    return 0;
}

namespace {

bool IsGenuine(const Packet& packet) {
    constexpr std::size_t kUnread = 89;
    constexpr std::size_t kUnreadSize = 7;
    const Bytes& genuine = Vector().nhs2;
    if (packet.length != genuine.size()) return false;
    Bytes bytes(packet.Bytes(), packet.Bytes() + packet.length);
    std::memset(bytes.data() + kUnread, 0, kUnreadSize);
    return bytes == genuine;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryUse before = LiveMemory();
    PacketPtr packet = PacketFrom(kTypeNhs2, data, size);
    const bool genuine = IsGenuine(*packet);
    Require(ShakeHands(std::move(packet)) == genuine);
    Require(CloudSecEstablished() == genuine);
    CloudSecClearSession();
    Require(LiveMemory().blocks == before.blocks);
    return 0;
}
