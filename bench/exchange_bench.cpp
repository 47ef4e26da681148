// The request exchange within the process: CommRequest with a pair of queues that a thread of this
// program serves. Its floor is two threads that pass a block back and forth.

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "channel.h"
#include "link/comm_request.h"
#include "link/comm_response.h"
#include "link/packet_queue.h"
#include "placement.h"
#include "report.h"
#include "rounds.h"
#include "scratch_folder.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik::bench {
namespace {

constexpr std::uint8_t kRequest[] = {0x22, 0xF1, 0x90};
constexpr std::uint8_t kResponse[] = {0x62, 0xF1, 0x90, 'W', 'T', 'V', '1', '2', '3', '4'};
constexpr std::size_t kRequestIdOffset = 28;  // in a CREQ
constexpr std::size_t kMaxThreads = 10;
constexpr std::int32_t kQueueWaitMs = 50;

PacketPtr MakeAnswer(std::uint32_t req_id) {
    PacketPtr packet = MakePacket(kTypeCres, sizeof(CommResponseWire) + sizeof kResponse);
    packet->SetU32(offsetof(CommResponseWire, data_length), sizeof kResponse);
    packet->SetU32(offsetof(CommResponseWire, req_id), req_id);
    std::memcpy(packet->Bytes() + sizeof(CommResponseWire), kResponse, sizeof kResponse);
    return packet;
}

// A dongle without a wire, with this many unclaimed answers in its receive queue.
class QueuePeer {
public:
    QueuePeer(std::uint32_t unclaimed, int core) {
        InitializeQueue(&queues_.rx);
        InitializeQueue(&queues_.tx);
        queues_.available = true;
        for (std::uint32_t i = 0; i < unclaimed; ++i) {
            PacketPtr stray = MakeAnswer(0x80000000 + i);
            EnqueueReceivedPacket(&queues_, stray);
        }
        answering_ = std::thread([this, core] {
            PlaceThisThread(core);
            Answer();
        });
    }
    ~QueuePeer() {
        queues_.available = false;
        FreeQueue(&queues_.tx);
        answering_.join();
        FreeQueue(&queues_.rx);
    }
    QueuePeer(const QueuePeer&) = delete;
    QueuePeer& operator=(const QueuePeer&) = delete;

    bool Ask() {
        const CommLink link = {.queues = &queues_, .running = nullptr};
        CommAnswer answer;
        return CommRequest(&link,
                           {.req_id = next_id_.fetch_add(1, std::memory_order_relaxed),
                            .data = kRequest,
                            .data_len = sizeof kRequest,
                            .can_id_tx = 0x7E0,
                            .can_id_rx = 0x7E8,
                            .timeout_ms = 1000},
                           &answer) &&
               answer.length == sizeof kResponse;
    }

private:
    void Answer() {
        while (queues_.available) {
            const PacketPtr request = TakePacket(&queues_.tx, kQueueWaitMs);
            if (request == nullptr) continue;
            PacketPtr answer = MakeAnswer(request->U32(kRequestIdOffset));
            EnqueueReceivedPacket(&queues_, answer);
        }
    }

    DeviceQueues queues_;
    std::atomic<std::uint32_t> next_id_{1};
    std::thread answering_;
};

class BarePeer {
public:
    explicit BarePeer(int core)
        : answering_([this, core] {
              PlaceThisThread(core);
              Answer();
          }) {}
    ~BarePeer() {
        requests_.Close();
        answering_.join();
    }
    BarePeer(const BarePeer&) = delete;
    BarePeer& operator=(const BarePeer&) = delete;

    bool Ask(std::size_t thread) {
        auto request = std::make_unique<Block>();
        request->id = static_cast<std::uint32_t>(thread);
        std::memcpy(request->bytes, kRequest, sizeof kRequest);
        requests_.Put(request.release());
        const std::unique_ptr<Block> answer(answers_[thread].Take());
        return answer != nullptr && answer->bytes[0] == kResponse[0];
    }

private:
    void Answer() {
        for (;;) {
            const std::unique_ptr<Block> request(requests_.Take());
            if (request == nullptr) return;
            auto answer = std::make_unique<Block>();
            std::memcpy(answer->bytes, kResponse, sizeof kResponse);
            answers_[request->id].Put(answer.release());
        }
    }

    Channel requests_;
    Channel answers_[kMaxThreads];
    std::thread answering_;
};

struct Variant {
    const char* name;
    bool diagnostics;  // debug log and trace
    std::size_t threads;
    std::size_t requests;
    Placement placement;
    std::vector<std::uint32_t> unclaimed;
};

// The order matters: an open log stays open for the process. On one core a thousand requests take
// two milliseconds, and starting the batch's thread, with its own heap, would be a large part of
// that.
const Variant kVariants[] = {
    {"off/1/two_cores", false, 1, 1000, kTwoCores, {0, 1000, 100'000}},
    {"off/1/one_core", false, 1, 5000, kOneCore, {0, 1000, 100'000}},
    {"off/10", false, 10, 200, kAnywhere, {0}},
    {"on/1/two_cores", true, 1, 500, kTwoCores, {0, 1000, 100'000}},
    {"on/1/one_core", true, 1, 500, kOneCore, {0, 1000, 100'000}},
    {"on/10", true, 10, 50, kAnywhere, {0}},
};

std::string Suffix(const Variant& variant) {
    std::string suffix = std::string(", log and trace ") + (variant.diagnostics ? "on" : "off");
    if (*variant.placement.text != '\0') suffix += std::string(", ") + variant.placement.text;
    return suffix;
}

std::string RowName(const Variant& variant, std::uint32_t unclaimed) {
    std::string name = "in process, " + std::to_string(variant.threads);
    name += variant.threads == 1 ? " exchange" : " exchanges";
    if (unclaimed > 0) name += ", " + std::to_string(unclaimed) + " unclaimed packets";
    return name + Suffix(variant);
}

void AddRows(const Variant& variant, const Rounds& rounds) {
    for (std::size_t i = 0; i < variant.unclaimed.size(); ++i) {
        AddRoundTripRow(RowName(variant, variant.unclaimed[i]), rounds, i + 1, 0,
                        variant.diagnostics ? kGoalsOn : kGoalsOff);
    }
    if (variant.unclaimed.size() < 2) return;
    const std::size_t last = variant.unclaimed.size();
    const double ratio = rounds.Ratio(last, 1, &Figures::p50_us);
    AddFindingRow(std::to_string(variant.unclaimed.back()) + " unclaimed packets against none" +
                      Suffix(variant),
                  Text("%.2f times the time", ratio), "≤ 1.10", ratio <= 1.1);
}

void Exchange(benchmark::State& state, const Variant& variant) {
    std::vector<std::unique_ptr<QueuePeer>> peers;
    for (const std::uint32_t unclaimed : variant.unclaimed) {
        peers.push_back(std::make_unique<QueuePeer>(unclaimed, variant.placement.answering));
    }
    const ScratchFolder folder;
    if (variant.diagnostics) {
        OpenDebugLog(true);
        StartCopTrace();
    }
    BarePeer floor(variant.placement.answering);
    const int core = variant.placement.asking;
    std::vector<Contender> contenders = {{"floor", variant.threads, variant.requests, core,
                                          [&](std::size_t thread) { return floor.Ask(thread); }}};
    for (std::size_t i = 0; i < peers.size(); ++i) {
        contenders.push_back({"unclaimed_" + std::to_string(variant.unclaimed[i]), variant.threads,
                              variant.requests, core,
                              [peer = peers[i].get()](std::size_t) { return peer->Ask(); }});
    }
    Rounds rounds(std::move(contenders));
    RunRounds(state, &rounds);
    StopCopTrace();
    AddRows(variant, rounds);
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    for (const Variant& variant : kVariants) {
        benchmark::RegisterBenchmark(
            (std::string("Exchange/") + variant.name).c_str(),
            [&variant](benchmark::State& state) { Exchange(state, variant); })
            ->Iterations(25)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    return RunBenchmarks(argc, argv);
}
