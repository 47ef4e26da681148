#include "worker/result_delivery.h"

#include "unit/worker/worker_link.h"

namespace tarvik::test {
namespace {

class Delivery : public WorkerLink {};

TEST_F(Delivery, CarriesEveryFieldOfTheResult) {
    const Ref<ComPrimitive> cop = MakeRequest();
    DeliverResult(link.Get(), cop.Get(), {7, 8, TrackedCopy({1, 2}).release(), 2, false, 1});
    DeliverResult(link.Get(), cop.Get(), {9, 10, TrackedCopy({3}).release(), 1, true, 0});
    EXPECT_EQ(Events(),
              (Texts{"result 7/8 0102 rx 00000100", "result 9/A 03 rx 00000000 sent then"}));
}

TEST_F(Delivery, QueuesTheResultBeforeTheCallback) {
    Texts seen;
    on_event = [&] {
        for (const std::string& event : Events())
            seen.push_back(event);
    };
    const Ref<ComPrimitive> cop = MakeRequest();
    DeliverResult(link.Get(), cop.Get(), {0, 5, TrackedCopy({0x62}).release(), 1, false, 0});
    EXPECT_EQ(seen, Texts{"result 0/5 62 rx 00000000"});
}

TEST_F(Delivery, TracesTheAnswerAndTheCallback) {
    const Ref<ComPrimitive> cop = MakeRequest();
    TraceCapture trace;
    DeliverResult(link.Get(), cop.Get(), {7, 8, TrackedCopy({0x62, 0xF1}).release(), 2, false, 0});
    trace.Stop();
    EXPECT_TRUE(trace.Mentions("\"uniq\":7,\"acc\":8"));
    EXPECT_EQ(trace.Count("notify_begin"), 1u);
    EXPECT_EQ(trace.Count("notify_end"), 1u);
}

TEST_F(Delivery, WithoutMemoryReleasesTheDataAndCallsNobody) {
    std::size_t callbacks = 0;
    on_event = [&] { ++callbacks; };
    const Ref<ComPrimitive> cop = MakeRequest();
    for (std::uint32_t allowed = 0; allowed < 2; ++allowed) {
        const MemoryUse before = LiveMemory();
        std::uint8_t* data = TrackedCopy({0x62}).release();
        TraceCapture trace;
        {
            const FailingHeap heap(allowed);
            DeliverResult(link.Get(), cop.Get(), {0, 5, data, 1, false, 0});
        }
        trace.Stop();
        EXPECT_EQ(callbacks, 0u);
        EXPECT_EQ(Events(), Texts{});
        EXPECT_FALSE(trace.Mentions("\"acc\":5"));
        EXPECT_TRUE(LiveMemory() == before);
    }
}

}  // namespace
}  // namespace tarvik::test
