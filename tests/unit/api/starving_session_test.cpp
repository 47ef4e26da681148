// The whole library on a dongle in memory: a session in which a request of the tracked allocator
// fails, in whatever thread, or fifty in a row.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "comparam/comparam_ids.h"
#include "dpdu_api.h"
#include "link/link_limits.h"
#include "link/packet.h"
#include "link/packet_queue.h"
#include "platform/thread.h"
#include "support/memory.h"
#include "unit/faults/tracked_memory_fault.h"
#include "unit/objects/fake_modules.h"
#include "worker/worker_limits.h"

namespace tarvik {

namespace {

std::atomic<bool> fault{false};  // a request may fail, and an answer may never come

}  // namespace

const LinkLimits& GetLinkLimits() {
    static constexpr LinkLimits kPatient = {
        .wait_slice_ms = 2,
        .dongle_grace_ms = 2000,
        .answer_timeout_ms = 10'000,
        .busy_limit_ms = 60'000,
        .reassembly_idle_ms = 30'000,
    };
    static constexpr LinkLimits kQuick = {
        .wait_slice_ms = 2,
        .dongle_grace_ms = 10,
        .answer_timeout_ms = 10,
        .busy_limit_ms = 10,
        .reassembly_idle_ms = 30'000,
    };
    return fault ? kQuick : kPatient;
}

namespace test {
namespace {

constexpr std::uint32_t kMany = 50;

// Answers every request with two bytes.
class MemoryDongle {
public:
    MemoryDongle() {
        InitializeQueue(&queues_.rx);
        InitializeQueue(&queues_.tx);
        queues_.available = true;
        thread_ = std::thread([this] { Run(); });
    }
    ~MemoryDongle() {
        ends_ = true;
        WakeQueueWaiters(&queues_.tx);
        thread_.join();
        FreeQueue(&queues_.rx);
        FreeQueue(&queues_.tx);
    }
    MemoryDongle(const MemoryDongle&) = delete;
    MemoryDongle& operator=(const MemoryDongle&) = delete;

    DeviceQueues* Queues() { return &queues_; }
    void DropAll() {
        while (TakePacket(&queues_.rx, 0) != nullptr) {
        }
    }

private:
    void Run() {
        NeverRefuse(OsCurrentThreadId());
        while (!ends_) {
            const PacketPtr packet = TakePacket(&queues_.tx, 20);
            if (packet == nullptr || packet->type != kTypeCreq) continue;
            PacketPtr answer = Answer(*packet->Fields<CommRequestWire>());
            EnqueueReceivedPacket(&queues_, answer);
        }
        NeverRefuse(0);
    }
    static PacketPtr Answer(const CommRequestWire& request) {
        static constexpr std::uint8_t kBytes[] = {0x50, 0x03};
        return BuildPacket(CommResponseWire{.type = kTypeCres,
                                            .length = 0,
                                            .wait_time = 1,
                                            .data_length = sizeof kBytes,
                                            .req_id = request.req_id},
                           {kBytes, sizeof kBytes});
    }

    DeviceQueues queues_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

class StarvingSession : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        serial_queues = dongle_.Queues();
    }
    void TearDown() override {
        serial_queues = nullptr;
        FakeModules::TearDown();
    }

    // What the header lists for lack of memory.
    static void Check(T_PDU_ERROR status, const char* function, bool may_fail) {
        const bool allowed =
            status == PDU_STATUS_NOERROR || (may_fail && status == PDU_ERR_FCT_FAILED);
        if (!allowed) unexpected_ = function;
    }

    // True: the answer came. Makes no assertions: they need memory too.
    bool RunSession() {
        UNUM32 hMod = PDU_HANDLE_UNDEF;
        UNUM32 hCLL = PDU_HANDLE_UNDEF;
        const bool answered = FindModule(&hMod) && CreateLink(hMod, &hCLL) && Ask(hMod, hCLL);
        if (hCLL != PDU_HANDLE_UNDEF) {
            Check(PDUDestroyComLogicalLink(hMod, hCLL), "PDUDestroyComLogicalLink", false);
        }
        return answered;
    }

    bool FindModule(UNUM32* hMod) {
        PDU_MODULE_ITEM* modules = nullptr;
        Check(PDUGetModuleIds(&modules), "PDUGetModuleIds", true);
        const bool found = modules != nullptr && modules->NumEntries > 0;
        if (found) *hMod = modules->pModuleData[0].hMod;
        PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(modules));
        if (found) Check(PDUModuleConnect(*hMod), "PDUModuleConnect", false);
        return found;
    }
    bool CreateLink(UNUM32 hMod, UNUM32* hCLL) {
        UNUM32 wait = 2'000'000;
        PDU_PARAM_ITEM p2 = {PDU_IT_PARAM, kCpP2Max, PDU_PT_UNUM32, 0, &wait};
        Check(PDUSetComParam(hMod, PDU_HANDLE_UNDEF, &p2), "PDUSetComParam", true);
        Check(PDUCreateComLogicalLink(hMod, nullptr, PDU_ID_UNDEF, nullptr, hCLL, nullptr),
              "PDUCreateComLogicalLink", true);
        if (*hCLL == PDU_HANDLE_UNDEF) return false;
        PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = nullptr;
        Check(PDUGetUniqueRespIdTable(hMod, *hCLL, &table), "PDUGetUniqueRespIdTable", false);
        if (table != nullptr) {
            Check(PDUSetUniqueRespIdTable(hMod, *hCLL, table), "PDUSetUniqueRespIdTable", false);
            PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(table));
        }
        Check(PDUConnect(hMod, *hCLL), "PDUConnect", false);
        return true;
    }
    // A fault may take the final state with it, so there is little patience meanwhile.
    bool Ask(UNUM32 hMod, UNUM32 hCLL) {
        UNUM8 request[] = {0x10, 0x03};
        PDU_EXP_RESP_DATA any = {};
        PDU_COP_CTRL_DATA control = {};
        control.NumSendCycles = control.NumReceiveCycles = 1;
        control.NumPossibleExpectedResponses = 1;
        control.pExpectedResponseArray = &any;
        UNUM32 hCoP = PDU_HANDLE_UNDEF;
        Check(PDUStartComPrimitive(hMod, hCLL, PDU_COPT_SENDRECV, sizeof request, request, &control,
                                   nullptr, &hCoP),
              "PDUStartComPrimitive", true);
        if (hCoP == PDU_HANDLE_UNDEF) return false;
        const int rounds = fault ? 20 : 10'000;
        bool answered = false;
        for (int i = 0; i < rounds; ++i) {
            PDU_EVENT_ITEM* event = nullptr;
            while (PDUGetEventItem(hMod, hCLL, &event) == PDU_STATUS_NOERROR) {
                answered = answered || event->ItemType == PDU_IT_RESULT;
                const bool last = IsFinal(*event);
                PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(event));
                if (last) return answered;
            }
            SleepMs(1);
        }
        return false;
    }
    static bool IsFinal(const PDU_EVENT_ITEM& event) {
        return event.hCop != PDU_HANDLE_UNDEF && event.ItemType == PDU_IT_STATUS &&
               *static_cast<const UNUM32*>(event.pData) == PDU_COPST_FINISHED;
    }

    // The next session, in the same process.
    void Restart() {
        EXPECT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
        dongle_.DropAll();
        SystemEventQueue->Initialize();
        ASSERT_TRUE(AllocParamItems());
        ASSERT_TRUE(ChangeLibraryState(Lifecycle::kNotConstructed, Lifecycle::kConstructed));
    }

    // False: the session has fewer requests.
    bool RunWithFault(std::uint32_t first, std::uint32_t count) {
        unexpected_ = nullptr;
        bool refused = false;
        fault = true;
        {
            const RefusedRequests refusing(first, count);
            RunSession();
            refused = refusing.Refused();
        }
        EXPECT_EQ(unexpected_, nullptr) << "from request " << first << ": " << unexpected_;
        Restart();
        fault = false;
        EXPECT_TRUE(RunSession()) << "the session after request " << first << " failed";
        Restart();
        return refused;
    }
    void RunAll(std::uint32_t count, std::uint32_t step) {
        EXPECT_TRUE(RunSession());
        Restart();
        const std::uint64_t before = LiveMemory().blocks;
        std::uint32_t first = 1;
        while (RunWithFault(first, count) && !HasFatalFailure())
            first += step;
        EXPECT_GT(first, 20u);
        // Workers of destroyed links end on their own.
        EXPECT_TRUE(Eventually([before] { return LiveMemory().blocks <= before; }))
            << LiveMemory().blocks << " blocks instead of " << before;
    }

    MemoryDongle dongle_;
    static inline const char* unexpected_ = nullptr;
};

TEST_F(StarvingSession, SurvivesEachRefusedRequest) { RunAll(1, 1); }

TEST_F(StarvingSession, SurvivesFiftyRefusedRequestsInARow) { RunAll(kMany, 4); }

}  // namespace
}  // namespace test

const WorkerLimits& GetWorkerLimits() {
    static constexpr WorkerLimits kLimits = {
        .request_poll_ms = 2,
        .receive_poll_ms = 2,
        .join_slice_ms = 1,
        .worker_stop_ms = 10'000,
        .destroyed_end_ms = 100,
        .receiver_stop_ms = 5'000,
    };
    return kLimits;
}

}  // namespace tarvik
