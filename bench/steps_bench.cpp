// The cost of the single steps of a request.

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "comparam/comparam_table.h"
#include "comparam/comparams.h"
#include "link/comm_response.h"
#include "link/packet_queue.h"
#include "report.h"
#include "scratch_folder.h"
#include "sealed_stream.h"
#include "support/console_output.h"
#include "support/cop_trace.h"
#include "support/log.h"
#include "transport/cloud/cloud_state.h"

namespace tarvik::bench {
namespace {

double ThreadCpuNs() {
    timespec used{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e9 + static_cast<double>(used.tv_nsec);
}

template <typename Step>
void Measure(benchmark::State& state, const char* name, Step step) {
    const double start = ThreadCpuNs();
    for ([[maybe_unused]] auto iteration : state)
        step();
    AddStepRow(name, (ThreadCpuNs() - start) / static_cast<double>(state.iterations()));
}

// Google Benchmark runs a function several times to find the number of iterations. With a given
// number it runs once, so there is one row.
template <typename Step>
void Register(const char* name, std::int64_t iterations, Step step) {
    benchmark::RegisterBenchmark(name, [name, step](benchmark::State& state) {
        Measure(state, name, step);
    })->Iterations(iterations);
}

void LogLine() { Log(kLogTrace, "[%s] Sent %i byte.", "SerialTxThreadFunc", 35); }

void TraceEvent() {
    static constexpr std::uint8_t kRequest[] = {0x22, 0xF1, 0x90};
    TraceCommReqSent({.req_id = 4711,
                      .tx = kRequest,
                      .tx_len = sizeof kRequest,
                      .can_id_tx_func = 0x7E0,
                      .can_id_tx_phys = 0x7E0,
                      .can_id_rx = 0x7E8,
                      .timeout = 1500,
                      .transport = 0});
}

void ReadOneComParam() { benchmark::DoNotOptimize(ReadComParam(kCpCanRespUSDTId)); }

void FindOneComParam() { benchmark::DoNotOptimize(FindComParamId("CP_CanRespUSDTId")); }

PacketPtr MakeAnswer(std::uint32_t req_id) {
    PacketPtr packet = MakePacket(kTypeCres, sizeof(CommResponseWire));
    packet->SetU32(offsetof(CommResponseWire, req_id), req_id);
    return packet;
}

DeviceQueues* QueuesWith(std::uint32_t unclaimed) {
    auto* queues = new DeviceQueues;
    InitializeQueue(&queues->rx);
    queues->available = true;
    for (std::uint32_t i = 0; i < unclaimed; ++i) {
        PacketPtr stray = MakeAnswer(0x80000000 + i);
        EnqueueReceivedPacket(queues, stray);
    }
    return queues;
}

// The queues are never released.
std::function<void()> EnqueueAndTake(std::uint32_t unclaimed) {
    return [queues = QueuesWith(unclaimed), id = std::uint32_t{0}]() mutable {
        PacketPtr answer = MakeAnswer(++id);
        EnqueueReceivedPacket(queues, answer);
        const PacketPtr taken = WaitForPacket(queues, kTypeCres, 1000, id);
        if (taken == nullptr) std::abort();
    };
}

std::function<void()> SealPacket(std::uint32_t size) {
    return [size] {
        const PacketPtr sealed = CloudSecSeal(MakePacket(kTypeSync, size));
        if (sealed->type != kTypeCryp) std::abort();
    };
}

// The relay's first packet, repeatedly.
std::function<void()> OpenPacket(std::uint32_t size) {
    const PacketPtr plain = MakePacket(kTypeSync, size);
    Bytes sealed;
    Sealer(Side::kRelay).Seal({plain->Bytes(), size}, &sealed);
    return [sealed] {
        PacketPtr packet = MakePacket(kTypeCryp, static_cast<std::uint32_t>(sealed.size()));
        std::memcpy(packet->Bytes(), sealed.data(), sealed.size());
        cloud_session.rxCounter = 0;
        if (!CloudSecOpen(&cloud_session, packet)) std::abort();
    };
}

// Standard output on a pipe in packet mode: each write is one packet.
class WriteCounter {
public:
    WriteCounter() : standard_(::dup(STDOUT_FILENO)) {
        int ends[2];
        if (::pipe2(ends, O_DIRECT | O_NONBLOCK) != 0) std::abort();
        read_end_ = ends[0];
        ::fcntl(ends[1], F_SETFL, O_DIRECT);  // the writer waits
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[1]);
    }
    ~WriteCounter() {
        ::dup2(standard_, STDOUT_FILENO);
        ::close(standard_);
        ::close(read_end_);
    }
    WriteCounter(const WriteCounter&) = delete;
    WriteCounter& operator=(const WriteCounter&) = delete;

    int Take() {
        char packet[4096];
        int writes = 0;
        while (::read(read_end_, packet, sizeof packet) > 0)
            ++writes;
        return writes;
    }

private:
    int standard_;
    int read_end_ = -1;
};

// The line of a request, printed by the printing thread.
void ConsoleLine(benchmark::State& state) {
    StartConsoleOutput();
    std::int64_t writes = 0;
    {
        WriteCounter output;
        for ([[maybe_unused]] auto iteration : state) {
            ConsolePrint("[%s] > 0x%X/0x%X, Rx 0x%X (%u ms) %s\n", "CommThreadFunc", 0x7DFu, 0x7E0u,
                         0x7E8u, 25u, "22 F1 90 ");
            writes += output.Take();
        }
    }
    StopConsoleOutput();
    state.counters["writes_per_line"] =
        static_cast<double>(writes) / static_cast<double>(state.iterations());
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    const ScratchFolder folder;
    Register("log line, log off", 20'000'000, LogLine);
    Register("trace event, trace off", 20'000'000, TraceEvent);
    Register("read a ComParam", 20'000'000, ReadOneComParam);
    Register("find a ComParam by its name", 1'000'000, FindOneComParam);
    Register("receive an answer and take it", 500'000, EnqueueAndTake(0));
    Register("the same among 100000 unclaimed packets", 500'000, EnqueueAndTake(100'000));
    InstallBenchSession();
    Register("seal a packet of 64 bytes", 500'000, SealPacket(64));
    Register("seal a packet of 4 KiB", 50'000, SealPacket(tarvik::kCloudMtu));
    Register("open a packet of 64 bytes", 500'000, OpenPacket(64));
    Register("open a packet of 4 KiB", 50'000, OpenPacket(tarvik::kCloudMtu));
    benchmark::RegisterBenchmark("console line", ConsoleLine)->Iterations(20'000);
    Register("log line, log on", 100'000, [] {
        tarvik::OpenDebugLog(true);  // does nothing after the first call
        LogLine();
    });
    Register("trace event, trace on", 20'000, [] {
        tarvik::StartCopTrace();
        TraceEvent();
    });
    const int result = RunBenchmarks(argc, argv);
    tarvik::StopCopTrace();
    return result;
}
