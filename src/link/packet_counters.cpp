#include "link/packet_counters.h"

#include "platform/immortal.h"
#include "platform/lock.h"

namespace tarvik {
namespace {

// A lock rather than four atomics: packets and bytes must change together.
Immortal<OsLock> statsLock;
PacketCounters counters;  // guarded by statsLock

}  // namespace

void CountSentPacket(std::uint32_t bytes) {
    const LockGuard hold(*statsLock);
    ++counters.sent_packets;
    counters.sent_bytes += bytes;
}

void CountReceivedPacket(std::uint32_t bytes) {
    const LockGuard hold(*statsLock);
    ++counters.received_packets;
    counters.received_bytes += bytes;
}

PacketCounters ReadPacketCounters() {
    const LockGuard hold(*statsLock);
    return counters;
}

void* PacketCountersLockAddress() { return statsLock->Address(); }

}  // namespace tarvik
