#pragma once

// Threads, handles and memory of this process before and after many rounds of something.

#include <cstdint>
#include <string>

#include "conformance/framework/rounds.h"
#include "conformance/framework/system.h"

namespace conformance {

// What the system itself may add in the course of a test.
struct Allowance {
    // Wine waits for a port's next event on a thread that it makes for each wait.
    std::uint64_t threads = kSpeed == Speed::kWine ? 1 : 0;
    // Under Wine a lock keeps a semaphore from the first time that two threads met at it.
    std::uint64_t handles = kSpeed == Speed::kWine ? 16 : 4;
    std::uint64_t memory = 2 << 20;  // bytes
};

// The figures now. A thread that has just ended may still be on the system's list: waits until the
// process has not grown by more since `before`, and gives up when that does not come.
ProcessFigures MeasureSettled(const ProcessFigures& before, const Allowance& allowance = {});

// Fails the test when the process has grown by more. Prints the figures.
void ExpectSteady(const std::string& what, const ProcessFigures& before,
                  const ProcessFigures& after, const Allowance& allowance = {});

}  // namespace conformance
