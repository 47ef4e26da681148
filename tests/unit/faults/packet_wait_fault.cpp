#include "unit/faults/packet_wait_fault.h"

#include <utility>

#include "link/packet_queue.h"

// The library's source, with its WaitForPacket renamed. This object then defines all that the
// source does, so the linker takes nothing of it from the library.
#define WaitForPacket LibraryWaitForPacket
#include "link/packet_wait.cpp"
#undef WaitForPacket

namespace tarvik {
namespace {

PacketPtr handed;

}  // namespace

PacketPtr WaitForPacket(DeviceQueues* queues, std::uint32_t type, std::uint32_t timeout_ms,
                        std::uint32_t id, const std::atomic<bool>* abort,
                        const std::atomic<bool>* running) {
    if (handed != nullptr) return std::move(handed);
    return LibraryWaitForPacket(queues, type, timeout_ms, id, abort, running);
}

namespace test {

void HandToNextWait(PacketPtr packet) { handed = std::move(packet); }

}  // namespace test
}  // namespace tarvik
