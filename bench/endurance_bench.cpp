// A hundred thousand requests to a control unit that answers immediately: none may be lost, and the
// library's memory must not grow. Linked with the library's objects, because the shared library
// does not export its allocator's figures.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "pdu_session.h"
#include "report.h"
#include "scratch_folder.h"
#include "simulated_dongle.h"
#include "support/memory.h"

namespace tarvik::bench {
namespace {

constexpr std::size_t kLinks = 10;
constexpr std::size_t kFirst = 1000;
constexpr std::uint64_t kMaxTraceBuffer = 8'388'608;

const PduFunctions kLinked = {.Construct = PDUConstruct,
                              .Destruct = PDUDestruct,
                              .GetModuleIds = PDUGetModuleIds,
                              .ModuleConnect = PDUModuleConnect,
                              .GetObjectId = PDUGetObjectId,
                              .GetComParam = PDUGetComParam,
                              .SetComParam = PDUSetComParam,
                              .CreateComLogicalLink = PDUCreateComLogicalLink,
                              .SetUniqueRespIdTable = PDUSetUniqueRespIdTable,
                              .Connect = PDUConnect,
                              .RegisterEventCallback = PDURegisterEventCallback,
                              .StartComPrimitive = PDUStartComPrimitive,
                              .GetEventItem = PDUGetEventItem,
                              .DestroyItem = PDUDestroyItem};

// The number of unanswered requests.
std::size_t Run(PduSession* session, std::size_t requests) {
    std::atomic<std::size_t> lost{0};
    std::vector<std::thread> threads;
    for (std::size_t link = 0; link < kLinks; ++link) {
        threads.emplace_back([&, link] {
            for (std::size_t i = 0; i < requests / kLinks; ++i) {
                if (!session->Ask(link)) ++lost;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return lost;
}

bool Same(const MemoryUse& one, const MemoryUse& other) {
    return one.blocks == other.blocks && one.bytes == other.bytes;
}

// The last ComPrimitives are released shortly after their applications have been notified.
MemoryUse SettledMemory() {
    MemoryUse before = LiveMemory();
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const MemoryUse now = LiveMemory();
        if (Same(before, now)) return now;
        before = now;
    }
}

std::string MemoryText(const MemoryUse& use) {
    return std::to_string(use.blocks) + " blocks, " + std::to_string(use.bytes) + " bytes";
}

void Endure(benchmark::State& state, bool diagnostics, std::size_t requests) {
    const ScratchFolder folder;
    folder.WriteConfig(diagnostics);
    PduSession session(kLinked, kLinks);
    std::size_t lost = 0;
    MemoryUse first{};
    MemoryUse last{};
    for ([[maybe_unused]] auto iteration : state) {
        lost += Run(&session, kFirst);
        first = SettledMemory();
        lost += Run(&session, requests - kFirst);
        last = SettledMemory();
    }
    state.counters["lost"] = static_cast<double>(lost);
    state.counters["first:bytes"] = static_cast<double>(first.bytes);
    state.counters["last:bytes"] = static_cast<double>(last.bytes);

    const std::string suffix = std::string(", log and trace ") + (diagnostics ? "on" : "off");
    AddFindingRow("answers lost in " + std::to_string(requests) + " requests" + suffix,
                  std::to_string(lost), "0", lost == 0);
    // The trace's line buffers grow with the traffic and are kept.
    const std::uint64_t allowed = diagnostics ? 2 * kMaxTraceBuffer : 0;
    const bool flat = last.bytes <= first.bytes + allowed;
    AddFindingRow("live tracked memory after " + std::to_string(kFirst) + " and after " +
                      std::to_string(requests) + " requests" + suffix,
                  MemoryText(first) + "; " + MemoryText(last),
                  diagnostics ? "≤ 16 MiB more (the trace's buffers)" : "the same", flat);
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    RunUnderSimulator(argv);
    benchmark::RegisterBenchmark("Endurance/off",
                                 [](benchmark::State& state) { Endure(state, false, 100'000); })
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Endurance/on",
                                 [](benchmark::State& state) { Endure(state, true, 20'000); })
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    return RunBenchmarks(argc, argv);
}
