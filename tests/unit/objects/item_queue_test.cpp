#include "objects/item_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "support/counted.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

// Appends its name to the list when it is released.
struct Named : Counted {
    explicit Named(char name_) : name(name_) {}
    ~Named() {
        if (on_release) on_release(*this);
    }
    const char name;
    static inline std::function<void(const Named&)> on_release;
};
using Queue = ItemQueue<Ref<Named>>;

class ItemQueues : public testing::Test {
protected:
    void SetUp() override {
        DebugLogPath();
        released.clear();
        Named::on_release = [this](const Named& object) {
            const std::lock_guard hold(released_lock);
            released += object.name;
        };
        queue.Initialize();
    }
    void TearDown() override {
        queue.Discard();
        Named::on_release = nullptr;
    }
    static bool Append(Queue& to, char name, std::uint32_t key = kNoKey) {
        return to.Append(MakeCounted<Named>(name), key);
    }
    bool Append(char name, std::uint32_t key = kNoKey) { return Append(queue, name, key); }
    static std::string NameOf(const Ref<Named>& object) {
        return object ? std::string(1, object->name) : "";
    }
    std::string Contents() {
        std::string names;
        queue.VisitAll([&](const Named& object) { names += object.name; });
        return names;
    }

    std::mutex released_lock;  // some tests release on several threads
    std::string released;
    Queue queue;
    const std::atomic<bool> running{true};
};

TEST_F(ItemQueues, ReturnObjectsInOrder) {
    for (const char name : {'a', 'b', 'c'})
        EXPECT_TRUE(Append(name));
    EXPECT_EQ(NameOf(queue.Take()), "a");
    EXPECT_TRUE(Append('d'));
    for (const char* name : {"b", "c", "d", ""})
        EXPECT_EQ(NameOf(queue.Take()), name);
    EXPECT_TRUE(Append('e'));
    EXPECT_EQ(NameOf(queue.Take()), "e");
}

TEST_F(ItemQueues, RemoveByKeyFromAnyPlace) {
    const auto fill = [&] {
        for (const char name : {'a', 'b', 'c'})
            Append(name, static_cast<std::uint32_t>(name));
    };
    fill();
    EXPECT_EQ(NameOf(queue.Remove('b')), "b");
    EXPECT_EQ(Contents(), "ac");
    EXPECT_EQ(NameOf(queue.Remove('b')), "");
    EXPECT_EQ(NameOf(queue.Remove('c')), "c");
    Append('d');
    EXPECT_EQ(Contents(), "ad");  // after the new last one
    EXPECT_EQ(NameOf(queue.Remove('a')), "a");
    EXPECT_EQ(Contents(), "d");
    EXPECT_EQ(NameOf(queue.Take()), "d");
    fill();
    EXPECT_EQ(Contents(), "abc");
}

TEST_F(ItemQueues, RemoveTheOldestOfSeveralWithOneKey) {
    Append('a', 1);
    Append('b', 2);
    Append('c', 2);
    EXPECT_EQ(NameOf(queue.Remove(2)), "b");
    EXPECT_EQ(NameOf(queue.Remove(2)), "c");
    EXPECT_EQ(Contents(), "a");
}

TEST_F(ItemQueues, RemoveTheOnlyObjectAndStayUsable) {
    Append('a', 1);
    EXPECT_EQ(NameOf(queue.Remove(1)), "a");
    Append('b', 2);
    EXPECT_EQ(Contents(), "b");
}

TEST_F(ItemQueues, FirstStaysInTheQueue) {
    EXPECT_FALSE(queue.First());
    Append('a');
    Append('b');
    EXPECT_EQ(NameOf(queue.First()), "a");
    EXPECT_EQ(Contents(), "ab");
}

TEST_F(ItemQueues, VisitTheObjectWithTheKey) {
    Append('a', 1);
    Append('b', 2);
    Append('c', 2);
    std::string visited;
    const auto visit = [&](const Named& object) { visited += object.name; };
    EXPECT_TRUE(queue.Visit(2, visit));
    EXPECT_FALSE(queue.Visit(3, visit));
    EXPECT_EQ(visited, "b");
}

TEST_F(ItemQueues, TakeNothingBeforeTheyAreInitialised) {
    Queue fresh;
    Ref<Named> object = MakeCounted<Named>('a');
    EXPECT_FALSE(fresh.Append(std::move(object), 1));
    // NOLINTNEXTLINE(bugprone-use-after-move): a refused object stays the caller's
    EXPECT_EQ(NameOf(object), "a");
    EXPECT_FALSE(fresh.Take());
    EXPECT_FALSE(fresh.WaitForNext(60'000, running));
}

TEST_F(ItemQueues, LateAppendLeavesTheObjectToItsCaller) {
    queue.Free();
    const MemoryUse before = LiveMemory();
    Ref<Named> object = MakeCounted<Named>('a');
    EXPECT_FALSE(queue.Append(std::move(object), 1));
    // NOLINTNEXTLINE(bugprone-use-after-move): a refused object stays the caller's
    ASSERT_TRUE(object);
    EXPECT_TRUE(object->IsOnlyReference());
    object.Reset();
    EXPECT_EQ(released, "a");
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(ItemQueues, AppendWithoutMemoryLeavesTheObjectToItsCaller) {
    Ref<Named> object = MakeCounted<Named>('a');
    bool appended = true;
    {
        const FailingHeap heap;
        appended = queue.Append(std::move(object), 1);
    }
    EXPECT_FALSE(appended);
    // NOLINTNEXTLINE(bugprone-use-after-move): a refused object stays the caller's
    EXPECT_EQ(NameOf(object), "a");
    EXPECT_FALSE(queue.First());
}

TEST_F(ItemQueues, FreeReleasesWhatIsLeftAndLogsOnce) {
    Append('a');
    Append('b');
    const LogCapture log;
    queue.Free();
    EXPECT_EQ(released, "ab");
    queue.Free();
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_TRUE(log.Mentions("[FreeQueue] Deleting CRITICAL_SECTION for queue at 0x"));
    EXPECT_FALSE(queue.Take());
}

TEST_F(ItemQueues, DiscardReleasesWhatIsLeftAndLogsNothing) {
    Append('a');
    const LogCapture log;
    queue.Discard();
    EXPECT_EQ(released, "a");
    EXPECT_EQ(log.Lines().size(), 0u);
}

TEST_F(ItemQueues, AreEmptyWhenInitialisedAgain) {
    Append('a');
    queue.Free();
    const LogCapture log;
    queue.Initialize();
    EXPECT_TRUE(log.Mentions("[InitializeQueue] Initialized CRITICAL_SECTION for queue at 0x"));
    EXPECT_EQ(Contents(), "");
    EXPECT_TRUE(Append('b'));
    EXPECT_EQ(NameOf(queue.Take()), "b");
}

TEST_F(ItemQueues, DestructorReleasesWhatIsLeft) {
    {
        Queue other;
        other.Initialize();
        Append(other, 'a');
    }
    EXPECT_EQ(released, "a");
}

// A destructor that uses the queue from another thread would never return under the lock.
TEST_F(ItemQueues, ReleaseObjectsOutsideTheLock) {
    const auto look_from_another_thread = [&](const Named& object) {
        released += object.name;
        Thread([&] { static_cast<void>(queue.First()); }).Join();
    };
    for (const char name : {'a', 'b', 'c', 'd'})
        Append(name, static_cast<std::uint32_t>(name));
    Named::on_release = look_from_another_thread;
    queue.Take();
    queue.Remove('b');
    queue.WaitForNext(0, running);
    queue.Free();
    EXPECT_EQ(released, "abcd");
}

TEST_F(ItemQueues, KeepNoReferenceToRemovedObjects) {
    const MemoryUse before = LiveMemory();
    Append('a');
    EXPECT_TRUE(queue.Take()->IsOnlyReference());
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(ItemQueues, WaitReturnsWhatIsThereAtOnce) {
    const FakeTick tick(1000);
    Append('a');
    Append('b');
    EXPECT_EQ(NameOf(queue.WaitForNext(0, running)), "a");
    EXPECT_EQ(NameOf(queue.WaitForNext(60'000, running)), "b");
}

TEST_F(ItemQueues, WaitWithoutTimeDoesNotSleep) {
    const FakeTick tick(1000);
    EXPECT_FALSE(queue.WaitForNext(0, running));
}

TEST_F(ItemQueues, WaitEndsAtItsTimeOut) { EXPECT_FALSE(queue.WaitForNext(1, running)); }

TEST_F(ItemQueues, WaitTakesNothingOnceItMayNotRun) {
    const std::atomic<bool> stopped{false};
    Append('a');
    EXPECT_FALSE(queue.WaitForNext(60'000, stopped));
    EXPECT_EQ(Contents(), "a");
}

// Each waits in its own thread, under a tick that does not move: only a wake-up ends the wait.
class WaitingItemQueues : public ItemQueues {
protected:
    // Calls `wake` while a thread waits, and returns what the thread got.
    template <typename Wake>
    std::string WokenBy(Wake wake) {
        const FakeTick tick(1000);
        std::string got = "not woken";
        Thread waiter([&] { got = NameOf(queue.WaitForNext(3'600'000, may_run)); });
        // The deadline, then the time before the sleep.
        EXPECT_TRUE(Eventually([&] { return tick.Reads() >= 2; }));
        wake();
        waiter.Join();
        return got;
    }
    std::atomic<bool> may_run{true};
};

TEST_F(WaitingItemQueues, AreWokenByAnAppend) {
    EXPECT_EQ(WokenBy([&] { Append('a'); }), "a");
}

TEST_F(WaitingItemQueues, AreWokenByAWakeOnceTheyMayNotRun) {
    EXPECT_EQ(WokenBy([&] {
                  may_run = false;
                  queue.Wake();
              }),
              "");
}

TEST_F(WaitingItemQueues, AreWokenByFree) {
    EXPECT_EQ(WokenBy([&] { queue.Free(); }), "");
}

TEST_F(WaitingItemQueues, KeepWaitingAfterAWakeWithoutReason) {
    EXPECT_EQ(WokenBy([&] {
                  queue.Wake();
                  Append('a');
              }),
              "a");
}

TEST_F(WaitingItemQueues, GiveEveryObjectToOneOfSeveralWaiters) {
    constexpr int kObjects = 200;
    std::atomic<int> taken{0};
    const auto take = [&] {
        while (may_run) {
            if (queue.WaitForNext(60'000, may_run)) ++taken;
        }
    };
    {
        Thread first(take);
        Thread second(take);
        Thread third(take);
        for (int i = 0; i < kObjects; ++i)
            Append('a');
        EXPECT_TRUE(Eventually([&] { return taken == kObjects; }));
        may_run = false;
        queue.Wake();
    }
    EXPECT_EQ(taken, kObjects);
}

// Handles other than references: those of events.
TEST(ItemQueueOfPointers, OwnsItsObjects) {
    ItemQueue<std::unique_ptr<int>> queue;
    queue.Initialize();
    EXPECT_TRUE(queue.Append(std::make_unique<int>(7), 1));
    EXPECT_TRUE(queue.Append(std::make_unique<int>(8), 2));
    EXPECT_EQ(*queue.Take(), 7);
    int seen = 0;
    EXPECT_TRUE(queue.Visit(2, [&](const int& value) { seen = value; }));
    EXPECT_EQ(seen, 8);
}

}  // namespace
}  // namespace tarvik::test
