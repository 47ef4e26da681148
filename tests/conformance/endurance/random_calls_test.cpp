#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "conformance/endurance/random_caller.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr std::uint32_t kThreads = 16;
constexpr std::uint64_t kFirstDestructMs = 1000;
constexpr std::chrono::seconds kEndLimit{60};  // after their time is up

class RandomCalls : public SerialDongle {
protected:
    Settings FirstSettings() const override { return {.enableCopTrace = true, .useSerial = true}; }
};

// A thread that does not come back holds locks: nothing further in this process could end.
void RunAllOrAbort(CallerBoard* board) {
    const std::uint64_t end_ms = TickMs() + kRandomCallsMs;
    board->next_destruct_ms.store(TickMs() + kFirstDestructMs);
    std::vector<std::thread> threads;
    std::vector<std::unique_ptr<Gate>> ends;
    for (std::uint32_t i = 0; i < kThreads; ++i) {
        Gate* end = ends.emplace_back(std::make_unique<Gate>()).get();
        threads.emplace_back([board, i, end_ms, end] {
            RandomCaller(board, i + 1).RunUntil(end_ms);
            end->Open();
        });
    }
    for (std::uint32_t i = 0; i < kThreads; ++i) {
        if (!ends[i]->Wait(std::chrono::milliseconds(kRandomCallsMs) + kEndLimit)) {
            std::fprintf(stderr, "thread %u of %u does not come back\n", i, kThreads);
            std::abort();
        }
        threads[i].join();
    }
}

TEST_F(RandomCalls, OfSixteenThreadsNeitherCrashNorBlockTheLibrary) {
    CallerBoard board;
    StdoutCapture console;
    RunAllOrAbort(&board);
    console.Text();
    std::printf(
        "%llu calls; successful: %llu constructs, %llu destructs, %llu scans, %llu links, "
        "%llu ComPrimitives, %llu results taken\n",
        static_cast<unsigned long long>(board.calls),
        static_cast<unsigned long long>(board.constructs),
        static_cast<unsigned long long>(board.destructs),
        static_cast<unsigned long long>(board.scans), static_cast<unsigned long long>(board.links),
        static_cast<unsigned long long>(board.com_primitives),
        static_cast<unsigned long long>(RandomCaller::ResultsTaken()));
    EXPECT_GT(board.constructs, 0u);
    EXPECT_GT(board.destructs, 0u);
    EXPECT_GT(board.scans, 0u);
    EXPECT_GT(board.links, 0u);
    EXPECT_GT(board.com_primitives, 0u);
    EXPECT_GT(RandomCaller::ResultsTaken(), 0u);

    Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
    Pdu().PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
    Pdu().PDUDestruct();
    Construct(FirstSettings());
    RandomCaller::GiveBackLeftovers();
    EngineLink link(hMod);
    EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
}

}  // namespace
}  // namespace conformance
