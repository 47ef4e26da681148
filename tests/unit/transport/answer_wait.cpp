// The linker's --wrap leads every call of WaitForPacket here first.
#include "unit/transport/answer_wait.h"

namespace tarvik {

#define TARVIK_WAIT "_ZN6tarvik13WaitForPacketEPNS_12DeviceQueuesEjjjPKSt6atomicIbES5_"

PacketPtr RealWaitForPacket(DeviceQueues*, std::uint32_t, std::uint32_t, std::uint32_t,
                            const std::atomic<bool>*,
                            const std::atomic<bool>*) __asm__("__real_" TARVIK_WAIT);
PacketPtr WrappedWaitForPacket(DeviceQueues*, std::uint32_t, std::uint32_t, std::uint32_t,
                               const std::atomic<bool>*,
                               const std::atomic<bool>*) __asm__("__wrap_" TARVIK_WAIT);

PacketPtr WrappedWaitForPacket(DeviceQueues* queues, std::uint32_t type, std::uint32_t timeout_ms,
                               std::uint32_t id, const std::atomic<bool>* abort,
                               const std::atomic<bool>* running) {
    const bool is_the_librarys = abort != nullptr || running != nullptr;  // tests do not use them
    if (is_the_librarys) timeout_ms = test::TimeForAnswer(queues, type, timeout_ms);
    return RealWaitForPacket(queues, type, timeout_ms, id, abort, running);
}

}  // namespace tarvik
