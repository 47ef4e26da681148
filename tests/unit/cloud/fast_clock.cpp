// The clock of this program's library runs ahead: what it waits for ends sooner, by its own ticks
// just as late. The pauses between two steps of the connection are most of what these tests take.
#include <chrono>
#include <cstdint>

#include "platform/lock.h"
#include "platform/tick.h"

namespace tarvik::test {

static constexpr std::int32_t kSpeed = 5;

static std::uint64_t FastTickMs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now * kSpeed);
    return static_cast<std::uint64_t>(ms.count());
}

[[maybe_unused]] static const TickSource kSystemTick = SetTickSource(FastTickMs);

static std::int32_t Shorten(std::int32_t timeout_ms) {
    return timeout_ms <= 0 ? timeout_ms : (timeout_ms + kSpeed - 1) / kSpeed;
}

}  // namespace tarvik::test

extern "C" bool __real__ZN6tarvik11OsCondition4WaitERNS_6OsLockEi(tarvik::OsCondition*,
                                                                  tarvik::OsLock&, std::int32_t);
extern "C" bool __wrap__ZN6tarvik11OsCondition4WaitERNS_6OsLockEi(tarvik::OsCondition*,
                                                                  tarvik::OsLock&, std::int32_t);
bool __wrap__ZN6tarvik11OsCondition4WaitERNS_6OsLockEi(tarvik::OsCondition* condition,
                                                       tarvik::OsLock& lock,
                                                       std::int32_t timeout_ms) {
    return __real__ZN6tarvik11OsCondition4WaitERNS_6OsLockEi(condition, lock,
                                                             tarvik::test::Shorten(timeout_ms));
}
