// Raw links on a module whose queues belong to the test.

#include <atomic>
#include <functional>
#include <string>

#include "link/packet_queue.h"
#include "link/raw_frame.h"
#include "objects/links.h"
#include "unit/objects/fake_modules.h"
#include "unit/test_system.h"
#include "unit/worker/test_limits.h"
#include "worker/stop_links.h"

namespace tarvik::test {
namespace {

class RawLinks : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        InitializeQueue(&dongle_.rx);
        InitializeQueue(&dongle_.tx);
        dongle_.available = true;
        serial_queues = &dongle_;
        ASSERT_EQ(Scan(), Handles{0});
    }
    void TearDown() override {
        FakeModules::TearDown();
        action = nullptr;
        dongle_.available = false;
        FreeQueue(&dongle_.rx);
        FreeQueue(&dongle_.tx);
    }

    static void Reconstruct() {
        SystemEventQueue->Initialize();
        ASSERT_TRUE(AllocParamItems());
        ASSERT_TRUE(ChangeLibraryState(Lifecycle::kNotConstructed, Lifecycle::kConstructed));
        ASSERT_EQ(Scan(), Handles{0});
    }
    // Connected.
    static std::uint32_t CreateRaw() {
        UNUM8 bits[4] = {0xC0};
        PDU_FLAG_DATA flag = {sizeof bits, bits};
        std::uint32_t hCLL = PDU_HANDLE_UNDEF;
        EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, &flag),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(PDUConnect(0, hCLL), PDU_STATUS_NOERROR);
        return hCLL;
    }
    static std::uint32_t Start(std::uint32_t hCLL, std::uint32_t type, std::vector<UNUM8> data = {},
                               SNUM32 receive_cycles = -1) {
        PDU_COP_CTRL_DATA control{};
        control.NumSendCycles = 1;
        control.NumReceiveCycles = receive_cycles;
        std::uint32_t hCoP = 0;
        EXPECT_EQ(PDUStartComPrimitive(0, hCLL, type, static_cast<UNUM32>(data.size()), data.data(),
                                       &control, nullptr, &hCoP),
                  PDU_STATUS_NOERROR);
        return hCoP;
    }
    static std::uint32_t ObjectsIn(ItemQueue<Ref<ComPrimitive>>& queue) {
        std::uint32_t count = 0;
        queue.VisitAll([&](const ComPrimitive&) { ++count; });
        return count;
    }
    static void StartReceiving(std::uint32_t hCLL) {
        const LogCapture log;
        Start(hCLL, PDU_COPT_SENDRECV);
        EXPECT_TRUE(Eventually([&] { return log.Mentions("starting thread for CoP"); }));
    }
    // Returns once the worker has finished all that was started before, callbacks included. A
    // receive thread may already be running before the worker has reported its request as finished.
    static void AwaitWorker(std::uint32_t hCLL) {
        const LogCapture log;
        const std::string done =
            "[CommThreadFunc] free CoP #" + std::to_string(Start(hCLL, PDU_COPT_UPDATEPARAM));
        EXPECT_TRUE(Eventually([&] { return log.Has(done); }));
    }
    // The next result's bytes; empty when none comes.
    static std::vector<UNUM8> NextFrame(std::uint32_t hCLL) {
        std::vector<UNUM8> bytes;
        Eventually([&] {
            PDU_EVENT_ITEM* item = nullptr;
            while (PDUGetEventItem(0, hCLL, &item) == PDU_STATUS_NOERROR) {
                if (item->ItemType == PDU_IT_RESULT) {
                    const auto& result = *static_cast<PDU_RESULT_DATA*>(item->pData);
                    EXPECT_EQ(result.TimestampFlags.NumFlagBytes, 0u);
                    EXPECT_EQ(result.pExtraInfo, nullptr);
                    bytes.assign(result.pDataBytes, result.pDataBytes + result.NumDataBytes);
                }
                PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
                if (!bytes.empty()) return true;
            }
            return false;
        });
        return bytes;
    }
    void ReceiveFrame(std::uint8_t data) {
        PacketPtr packet = MakePacket(kTypeRawc, 24);
        packet->SetU32(8, 0x123);
        packet->SetU16(12, 1);
        packet->Bytes()[16] = data;
        ASSERT_TRUE(EnqueueReceivedPacket(&dongle_, packet));
    }
    static std::vector<UNUM8> Delivered(std::uint8_t data) { return {0, 0, 1, 0x23, data}; }

    static inline std::function<void()> action;
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void*) {
        if (action) action();
    }

    static inline DeviceQueues dongle_;
};

TEST_F(RawLinks, KeepTheIdentifierOfTheFrameBeingSent) {
    const std::uint32_t hCLL = CreateRaw();
    Start(hCLL, PDU_COPT_STARTCOMM, {0x18, 0xDA, 0xF1, 0x10, 0x55});
    PacketPtr packet;
    ASSERT_TRUE(Eventually([&] { return (packet = TakePacket(&dongle_.tx, 0)) != nullptr; }));
    EXPECT_EQ(packet->U32(8), 0x18DAF110u);
    AwaitWorker(hCLL);
    EXPECT_EQ(FindLink(0, hCLL)->rawCanId, 0x18DAF110u);
}

TEST_F(RawLinks, ReceiveOnAThreadWithItsOwnName) {
    const std::uint32_t hCLL = CreateRaw();
    StartReceiving(hCLL);
    AwaitWorker(hCLL);
    std::string name;
    std::atomic<bool> called{false};
    action = [&] {
        if (!called) name = CurrentThreadName();
        called = true;
    };
    PDURegisterEventCallback(0, hCLL, OnEvent);
    ReceiveFrame(1);
    ASSERT_TRUE(Eventually([&] { return called.load(); }));
    PDURegisterEventCallback(0, hCLL, nullptr);
    EXPECT_EQ(name, KeptThreadName("Tarvik CommReceiveFunc"));
}

TEST_F(RawLinks, HoldTheReceivingComPrimitiveInTheirQueue) {
    const std::uint32_t hCLL = CreateRaw();
    StartReceiving(hCLL);
    StartReceiving(hCLL);
    const LinkRef link = FindLink(0, hCLL);
    // The worker adds it after the thread has started.
    EXPECT_TRUE(Eventually([&] { return ObjectsIn(link->raw_receive) == 1; }));
    EXPECT_EQ(ObjectsIn(link->registry), 2u);
}

TEST_F(RawLinks, ReceiveAgainWhenTheDongleIsBack) {
    const std::uint32_t hCLL = CreateRaw();
    StartReceiving(hCLL);
    dongle_.available = false;
    FreeQueue(&dongle_.rx);
    InitializeQueue(&dongle_.rx);
    dongle_.available = true;
    ReceiveFrame(7);
    EXPECT_EQ(NextFrame(hCLL), Delivered(7));
}

TEST_F(RawLinks, EndWhileTheDongleIsAway) {
    const std::uint32_t hCLL = CreateRaw();
    StartReceiving(hCLL);
    dongle_.available = false;
    FreeQueue(&dongle_.rx);
    const LogCapture log;
    PDUDestroyComLogicalLink(0, hCLL);
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
}

TEST_F(RawLinks, OfAModuleWithoutQueuesSendAndReceiveNothing) {
    PDUDestruct();
    serial_queues = nullptr;
    Reconstruct();
    const std::uint32_t hCLL = CreateRaw();
    Start(hCLL, PDU_COPT_STARTCOMM, {0, 0, 1, 0x23, 1});
    StartReceiving(hCLL);
    const LogCapture log;
    PDUDestroyComLogicalLink(0, hCLL);
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_TRUE(log.Mentions("stopping"));
}

TEST_F(RawLinks, AreTheOnlyLinksThatSendFrames) {
    std::uint32_t hCLL = PDU_HANDLE_UNDEF;
    ASSERT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr),
              PDU_STATUS_NOERROR);
    ASSERT_EQ(PDUConnect(0, hCLL), PDU_STATUS_NOERROR);
    const LogCapture log;
    Start(hCLL, PDU_COPT_STARTCOMM, {0, 0, 1, 0x23, 1});
    ASSERT_TRUE(Eventually([&] { return log.Mentions("[CommThreadFunc] free CoP #"); }));
    EXPECT_FALSE(log.Mentions("RAW:"));
    while (const PacketPtr packet = TakePacket(&dongle_.tx, 0))
        EXPECT_NE(packet->type, kTypeRawc);
}

// The worker starts them faster than their threads begin.
TEST_F(RawLinks, TakeOverInOrderHoweverFastReceiversFollow) {
    constexpr std::size_t kReceivers = 200;
    const std::uint32_t hCLL = CreateRaw();
    for (std::size_t i = 0; i < kReceivers; ++i)
        Start(hCLL, PDU_COPT_SENDRECV);
    std::vector<std::uint16_t> flags;
    const auto take = [&] {
        while (const PacketPtr packet = TakePacket(&dongle_.tx, 0))
            flags.push_back(packet->U16(14));
        return flags.size() >= 2 * kReceivers - 1;
    };
    EXPECT_TRUE(Eventually(take));
    EXPECT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    take();
    ASSERT_EQ(flags.size(), 2 * kReceivers);
    for (std::size_t i = 0; i < flags.size(); ++i) {
        ASSERT_EQ(flags[i], i % 2 == 0 ? kRawReceptionOn : kRawReceptionOff) << "packet " << i;
    }
}

// The receive thread of a destroyed link is inside a callback that is inside a call of the API. The
// link's worker waits for the thread.
class RawLinksInACall : public RawLinks {
protected:
    void SetUp() override {
        worker_limits.destroyed_end_ms = 1;
        RawLinks::SetUp();
        const std::uint32_t hCLL = CreateRaw();
        StartReceiving(hCLL);
        AwaitWorker(hCLL);
        link_ = FindLink(0, hCLL);
        action = [this] {
            if (entered_.exchange(true)) return;
            const ApiCall call;
            inside_ = true;
            Eventually([this] { return stops_ || calls_again_ || released_; });
            if (stops_) {
                StopAllLinks();
                only_own_calls_ = WaitForOtherApiCalls(0) && WaitForOtherApiCalls(0);
                stopped_ = true;
            }
            const ApiCall another;
            inside_again_ = true;
            Eventually([this] { return released_.load(); });
        };
        EXPECT_EQ(PDURegisterEventCallback(0, hCLL, OnEvent), PDU_STATUS_NOERROR);
        ReceiveFrame(1);
        ASSERT_TRUE(Eventually([this] { return inside_.load(); }));
        EXPECT_EQ(PDUDestroyComLogicalLink(0, hCLL), PDU_STATUS_NOERROR);
    }
    void TearDown() override {
        Release();
        RawLinks::TearDown();
    }
    void Release() {
        released_ = true;
        EXPECT_TRUE(Eventually([this] { return OsThreadJoin(link_->thread, 100); }));
    }
    // Two waits, for the two generations of calls.
    static bool OthersAreInACall() { return !WaitForOtherApiCalls(0) || !WaitForOtherApiCalls(0); }

    LinkRef link_;
    std::atomic<bool> entered_{false}, inside_{false}, released_{false};
    std::atomic<bool> calls_again_{false}, inside_again_{false};
    std::atomic<bool> stops_{false}, stopped_{false}, only_own_calls_{false};

private:
    LimitsScope scope_;
};

TEST_F(RawLinksInACall, AreNotWaitedForOnceTheirThreadIsGivenUp) {
    EXPECT_TRUE(OthersAreInACall());
    StopAllLinks();
    EXPECT_FALSE(OthersAreInACall());
    calls_again_ = true;
    ASSERT_TRUE(Eventually([this] { return inside_again_.load(); }));
    EXPECT_FALSE(OthersAreInACall());
    Release();
    EXPECT_FALSE(OthersAreInACall());
}

// Otherwise its own call would stand for that of the other thread.
TEST_F(RawLinksInACall, StillWaitForOthersWhenTheirThreadStopsTheLinks) {
    const ApiCall call;
    stops_ = true;
    ASSERT_TRUE(Eventually([this] { return stopped_.load(); }));
    EXPECT_FALSE(only_own_calls_);
}

TEST_F(RawLinks, LeakNoMemory) {
    const auto round = [&] {
        const std::uint32_t hCLL = CreateRaw();
        for (std::uint8_t i = 0; i < 5; ++i) {
            StartReceiving(hCLL);
            ReceiveFrame(i);
            EXPECT_EQ(NextFrame(hCLL), Delivered(i));
            Start(hCLL, PDU_COPT_STARTCOMM, {0, 0, 1, 0x23, i});
        }
        EXPECT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
        // A receive thread may end its reception before the worker sends the frame it has taken.
        std::uint16_t last_switch = kRawFrame;
        while (const PacketPtr packet = TakePacket(&dongle_.tx, 0)) {
            if (packet->type == kTypeRawc && packet->U16(14) != kRawFrame) {
                last_switch = packet->U16(14);
            }
        }
        EXPECT_EQ(last_switch, kRawReceptionOff);
    };
    round();
    const MemoryUse before = LiveMemory();
    Reconstruct();
    round();
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

}  // namespace
}  // namespace tarvik::test
