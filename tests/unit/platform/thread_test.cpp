#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "platform/event.h"
#include "platform/tick.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

using test::Eventually;

// A thread that waits for its event.
struct Patient {
    OsEvent* go = OsEventCreate(EventReset::kManual);
    std::atomic<bool> started{false};
    std::atomic<bool> finished{false};
    std::atomic<std::uint32_t> id{0};

    ~Patient() { OsEventClose(go); }

    static void Run(void* argument) {
        auto* self = static_cast<Patient*>(argument);
        self->id = OsCurrentThreadId();
        self->started = true;
        OsEventWait(self->go, -1);
        self->finished = true;
    }
};

TEST(Thread, RunsItsEntryWithItsArgument) {
    std::atomic<int> value{0};
    OsThread* thread =
        OsThreadStart([](void* argument) { *static_cast<std::atomic<int>*>(argument) = 7; }, &value,
                      "Tarvik test");
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    EXPECT_EQ(value, 7);
    OsThreadClose(thread);
}

TEST(Thread, JoinReturnsFalseOnTimeoutAndCanBeRepeated) {
    Patient patient;
    OsThread* thread = OsThreadStart(&Patient::Run, &patient, "Tarvik test");
    EXPECT_FALSE(OsThreadJoin(thread, 0));
    EXPECT_FALSE(OsThreadJoin(thread, 1));
    OsEventSet(patient.go);
    EXPECT_TRUE(OsThreadJoin(thread, 10'000));
    EXPECT_TRUE(OsThreadJoin(thread, 0));  // still ended
    EXPECT_TRUE(patient.finished);
    OsThreadClose(thread);
}

TEST(Thread, HasItsDescription) {
    struct Named {
        std::string seen;
    } named;
    OsThread* thread = OsThreadStart(
        [](void* argument) {
            auto* self = static_cast<Named*>(argument);
            // The description may be set after the thread has started.
            Eventually([&] {
                self->seen = test::CurrentThreadName();
                return self->seen == test::KeptThreadName("Tarvik CloudRxThread");
            });
        },
        &named, "Tarvik CloudRxThread");
    EXPECT_TRUE(OsThreadJoin(thread, 30'000));
    OsThreadClose(thread);
    EXPECT_EQ(named.seen, test::KeptThreadName("Tarvik CloudRxThread"));
}

// Whether a thread can be ended from outside depends on the system.
TEST(Thread, TerminatedThreadEndsWhereItIsOrContinuesUndisturbed) {
    Patient patient;
    OsThread* thread = OsThreadStart(&Patient::Run, &patient, "Tarvik test");
    EXPECT_TRUE(Eventually([&] { return patient.started.load(); }));
    const bool terminated = OsThreadTerminate(thread);
    EXPECT_EQ(terminated, test::kTerminatesThreads);
    if (!terminated) {
        EXPECT_FALSE(OsThreadJoin(thread, 0));
        OsEventSet(patient.go);
    }
    EXPECT_TRUE(OsThreadJoin(thread, 10'000));
    EXPECT_NE(patient.finished, terminated);
    OsThreadClose(thread);
}

// A thread that waits inside a TerminationShield, and after it for its end.
struct Shielded {
    OsEvent* leave = OsEventCreate(EventReset::kManual);
    OsEvent* end = OsEventCreate(EventReset::kManual);
    std::atomic<bool> inside{false};
    std::atomic<bool> outside{false};
    OsThread* thread = OsThreadStart(&Shielded::Run, this, "Tarvik test");

    ~Shielded() {
        OsThreadClose(thread);
        OsEventClose(leave);
        OsEventClose(end);
    }

    static void Run(void* argument) {
        auto* self = static_cast<Shielded*>(argument);
        {
            const TerminationShield outer;
            const TerminationShield inner;
            self->inside = true;
            OsEventWait(self->leave, -1);
        }
        self->outside = true;
        OsEventWait(self->end, -1);
    }
};

TEST(Thread, IsNotTerminatedInsideAShield) {
    Shielded shielded;
    EXPECT_TRUE(Eventually([&] { return shielded.inside.load(); }));
    EXPECT_FALSE(OsThreadTerminate(shielded.thread));
    EXPECT_FALSE(OsThreadJoin(shielded.thread, 0));
    OsEventSet(shielded.leave);
    EXPECT_TRUE(Eventually([&] { return shielded.outside.load(); }));
    OsEventSet(shielded.end);
    EXPECT_TRUE(OsThreadJoin(shielded.thread, 10'000));
}

TEST(Thread, IsTerminatedOnceItIsOutsideItsShield) {
    Shielded shielded;
    EXPECT_TRUE(Eventually([&] { return shielded.inside.load(); }));
    OsEventSet(shielded.leave);
    EXPECT_TRUE(Eventually([&] { return shielded.outside.load(); }));
    EXPECT_EQ(OsThreadTerminate(shielded.thread), test::kTerminatesThreads);
    OsEventSet(shielded.end);
    EXPECT_TRUE(OsThreadJoin(shielded.thread, 10'000));
}

TEST(Thread, TerminatingAnEndedThreadDoesNothing) {
    OsThread* thread = OsThreadStart([](void*) {}, nullptr, "Tarvik test");
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    OsThreadTerminate(thread);
    EXPECT_TRUE(OsThreadJoin(thread, 0));
    OsThreadClose(thread);
}

TEST(Thread, RunningThreadContinuesAfterItsHandleIsClosed) {
    static Patient patient;  // outlives the thread's last steps
    OsThread* thread = OsThreadStart(&Patient::Run, &patient, "Tarvik test");
    EXPECT_TRUE(Eventually([&] { return patient.started.load(); }));
    OsThreadClose(thread);
    OsEventSet(patient.go);
    EXPECT_TRUE(Eventually([&] { return patient.finished.load(); }));
}

TEST(Thread, IsCurrentOnlyOnItself) {
    struct Asked {
        std::atomic<OsThread*> self{nullptr};
        bool is_current = false;
    } asked;
    asked.self = OsThreadStart(
        [](void* argument) {
            auto* own = static_cast<Asked*>(argument);
            Eventually([&] { return own->self != nullptr; });
            own->is_current = OsThreadIsCurrent(own->self);
        },
        &asked, "Tarvik test");
    EXPECT_FALSE(OsThreadIsCurrent(asked.self));
    EXPECT_TRUE(OsThreadJoin(asked.self, -1));
    EXPECT_TRUE(asked.is_current);
    EXPECT_FALSE(OsThreadIsCurrent(nullptr));
    OsThreadClose(asked.self);
}

TEST(Thread, HasItsOwnIdAndAHandle) {
    Patient patient;
    OsThread* thread = OsThreadStart(&Patient::Run, &patient, "Tarvik test");
    EXPECT_NE(OsThreadHandle(thread), nullptr);
    OsEventSet(patient.go);
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    EXPECT_NE(patient.id, 0u);
    EXPECT_NE(patient.id, OsCurrentThreadId());
    EXPECT_EQ(OsCurrentThreadId(), OsCurrentThreadId());
    OsThreadClose(thread);
}

TEST(Thread, LastErrorIsKeptPerThread) {
    OsSetLastError(5);
    std::int32_t elsewhere = 5;
    OsThread* thread = OsThreadStart(
        [](void* argument) {
            OsSetLastError(6);
            *static_cast<std::int32_t*>(argument) = OsLastError();
        },
        &elsewhere, "Tarvik test");
    OsSetLastError(5);
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    OsThreadClose(thread);
    OsSetLastError(5);
    EXPECT_EQ(OsLastError(), 5);
    EXPECT_EQ(elsewhere, 6);
}

TEST(Thread, ManyThreadsStartAndEnd) {
    std::atomic<int> ended{0};
    for (int i = 0; i < 500; ++i) {
        OsThread* thread =
            OsThreadStart([](void* argument) { ++*static_cast<std::atomic<int>*>(argument); },
                          &ended, "Tarvik test");
        ASSERT_NE(thread, nullptr);
        if (i % 2 == 0) OsThreadJoin(thread, -1);
        OsThreadClose(thread);
    }
    EXPECT_TRUE(Eventually([&] { return ended == 500; }));
}

TEST(Thread, UnloadingIsAllowedWhenEveryThreadHasEnded) {
    Patient patient;
    OsThread* thread = OsThreadStart(&Patient::Run, &patient, "Tarvik test");
    EXPECT_FALSE(OsAllowUnloading(0));
    OsEventSet(patient.go);
    EXPECT_TRUE(OsAllowUnloading(10'000));
    OsThreadClose(thread);
}

TEST(Thread, UnloadingWaitsForAThreadWhoseHandleIsClosed) {
    static Patient patient;
    OsThread* thread = OsThreadStart(&Patient::Run, &patient, "Tarvik test");
    OsThreadClose(thread);
    EXPECT_FALSE(OsAllowUnloading(0));
    OsEventSet(patient.go);
    EXPECT_TRUE(OsAllowUnloading(10'000));
}

TEST(Thread, UnloadingDoesNotWaitForTheThreadThatAsks) {
    struct Asker {
        bool allowed = true;
    } asker;
    OsThread* thread = OsThreadStart(
        [](void* argument) {
            // Waiting for itself would take until the test's own time limit.
            static_cast<Asker*>(argument)->allowed = OsAllowUnloading(3'600'000);
        },
        &asker, "Tarvik test");
    EXPECT_TRUE(OsThreadJoin(thread, -1));
    EXPECT_FALSE(asker.allowed);
    OsThreadClose(thread);
    EXPECT_TRUE(OsAllowUnloading(10'000));
}

}  // namespace
}  // namespace tarvik
