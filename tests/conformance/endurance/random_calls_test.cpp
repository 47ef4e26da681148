// All 29 functions, called in random order by sixteen threads while dongles are unplugged and
// replugged. DPDU_STRESS_SECONDS sets the duration, DPDU_STRESS_SEED the seed.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "conformance/endurance/call_watchdog.h"
#include "conformance/endurance/random_caller.h"
#include "conformance/endurance/restless_dongles.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr std::uint32_t kThreads = 16;
constexpr std::uint32_t kDongles = 2;
constexpr std::uint32_t kMoreRuns = 5;
constexpr std::uint64_t kFirstDestructMs = 1000;
// A PDUDestruct that waits for all other calls may take 10 seconds, longer on a busy machine.
constexpr std::chrono::seconds kLongestCall{60};

std::uint32_t NumberFrom(const char* variable, std::uint32_t otherwise) {
    const char* text = std::getenv(variable);
    return text == nullptr ? otherwise
                           : static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

// The functions on which all others depend. On a slow machine the others may get only stale
// handles.
bool MustSucceed(const std::string& function) {
    static const std::set<std::string> kFunctions = {
        "PDUConstruct",  "PDUDestruct", "PDUGetModuleIds",     "PDUCreateComLogicalLink",
        "PDUGetVersion", "PDUConnect",  "PDUStartComPrimitive"};
    return kFunctions.contains(function);
}

class RandomCalls : public SerialDongle {
protected:
    void SetUp() override {
        SerialDongle::SetUp();
        simulator.Command("@1 replug");
    }
    Settings FirstSettings() const override { return {.enableCopTrace = true, .useSerial = true}; }

    void RunCallers(std::uint64_t for_ms, std::uint32_t seed) {
        board_.next_destruct_ms.store(TickMs() + kFirstDestructMs);
        std::vector<CurrentCall> calls(kThreads);
        const CallWatchdog watchdog(calls, kLongestCall);
        RestlessDongles dongles(kDongles, seed);
        const std::uint64_t end_ms = TickMs() + for_ms;
        std::vector<std::thread> threads;
        for (std::uint32_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([this, i, end_ms, seed, &calls] {
                RandomCaller(&board_, &calls[i], seed + i).RunUntil(end_ms);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        pulled_out_ += dongles.TimesPulledOut();
    }

    // True if every function was called, those that must succeed did, and modules, results and
    // unplugged dongles were seen.
    bool HaveMetEverything() const {
        for (std::size_t i = 0; i < kFunctionCount; ++i) {
            const bool must_succeed = MustSucceed(FunctionName(i));
            if ((must_succeed ? board_.successes[i] : board_.calls[i]) == 0) return false;
        }
        return board_.modules_found > 0 && RandomCaller::ResultsTaken() > 0 && pulled_out_ > 0;
    }

    void PrintFigures() const {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < kFunctionCount; ++i) {
            sum += board_.calls[i];
            std::printf("%-28s %8llu calls, %8llu successful\n", FunctionName(i),
                        static_cast<unsigned long long>(board_.calls[i]),
                        static_cast<unsigned long long>(board_.successes[i]));
        }
        std::printf(
            "%llu calls, %llu results taken, %llu modules found, dongles pulled out %llu "
            "times\n",
            static_cast<unsigned long long>(sum),
            static_cast<unsigned long long>(RandomCaller::ResultsTaken()),
            static_cast<unsigned long long>(board_.modules_found),
            static_cast<unsigned long long>(pulled_out_));
    }

    CallerBoard board_;
    std::uint64_t pulled_out_ = 0;
};

TEST_F(RandomCalls, OfSixteenThreadsNeitherCrashNorBlockTheLibrary) {
    const std::uint32_t seed = NumberFrom("DPDU_STRESS_SEED", std::random_device()());
    const std::uint32_t for_ms = NumberFrom("DPDU_STRESS_SECONDS", kRandomCallsMs / 1000) * 1000;
    std::printf("DPDU_STRESS_SEED=%u DPDU_STRESS_SECONDS=%u\n", seed, for_ms / 1000);
    std::fflush(stdout);
    {
        StdoutCapture console;
        RunCallers(for_ms, seed);
        // On a busy machine the time may end before a dongle was found and has answered.
        for (std::uint32_t more = 1; more <= kMoreRuns && !HaveMetEverything(); ++more)
            RunCallers(for_ms, seed + more * kThreads);
    }
    PrintFigures();
    for (std::size_t i = 0; i < kFunctionCount; ++i) {
        EXPECT_GT(board_.calls[i], 0u) << FunctionName(i);
        if (!MustSucceed(FunctionName(i))) continue;
        EXPECT_GT(board_.successes[i], 0u) << FunctionName(i);
    }
    EXPECT_GT(board_.modules_found, 0u);
    EXPECT_GT(RandomCaller::ResultsTaken(), 0u);
    EXPECT_GT(pulled_out_, 0u);

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
