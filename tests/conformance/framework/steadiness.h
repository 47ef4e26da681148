#pragma once

// Threads, handles and memory of this process before and after many rounds of something.

#include <cstdint>
#include <string>

#include "conformance/framework/rounds.h"
#include "conformance/framework/system.h"

namespace conformance {

// What the system itself may add during a test.
struct Allowance {
    // Wine creates a thread for each wait for a port's next event.
    std::uint64_t threads = kSpeed == Speed::kWine ? 1 : 0;
    // Under Wine a lock keeps a semaphore after its first contention.
    std::uint64_t handles = kSpeed == Speed::kWine ? 16 : 4;
    std::uint64_t memory = 2 << 20;  // bytes
};

// The current figures. A thread that has just ended may still be on the system's list, so this
// waits until the process has not grown by more since `before`, or until patience runs out.
ProcessFigures MeasureSettled(const ProcessFigures& before, const Allowance& allowance = {});

// Fails the test if the process has grown by more. Prints the figures.
void ExpectSteady(const std::string& what, const ProcessFigures& before,
                  const ProcessFigures& after, const Allowance& allowance = {});

}  // namespace conformance
