// Threads that are inside a lock when they are to be terminated.

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdlib>

#include "platform/event.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

using test::Eventually;

// A thread that is inside the heap's lock most of the time.
struct HeapUser {
    std::atomic<bool> started{false};
    std::atomic<bool> end{false};

    static void Run(void* argument) {
        auto* self = static_cast<HeapUser*>(argument);
        while (!self->end) {
            ::HeapLock(::GetProcessHeap());
            self->started = true;
            ::Sleep(9);
            ::HeapUnlock(::GetProcessHeap());
            ::Sleep(3);
        }
    }
};

// Nothing can report a heap that is locked for ever, as that takes memory.
DWORD WINAPI EndHangingProcess(void*) {
    ::Sleep(20'000);
    OsExitProcess(7);
}

const test::ChildBody kTerminateHeapUsers("terminate-heap-users", [] {
    ::CloseHandle(::CreateThread(nullptr, 0, &EndHangingProcess, nullptr, 0, nullptr));
    for (int i = 0; i < 4; ++i) {
        HeapUser user;
        OsThread* thread = OsThreadStart(&HeapUser::Run, &user, "Tarvik test");
        if (thread == nullptr || !Eventually([&] { return user.started.load(); })) return 1;
        OsThreadTerminate(thread);
        std::free(std::malloc(100'000));
        user.end = true;
        if (!OsThreadJoin(thread, 10'000)) return 2;
        OsThreadClose(thread);
    }
    return 0;
});

TEST(Termination, LeavesTheHeapUsable) {
    EXPECT_EQ(test::RunChild("terminate-heap-users").exit_code, 0);
}

// A thread that keeps the loader's lock, as inside an initialisation that never ends.
struct LoaderUser {
    OsEvent* go = OsEventCreate(EventReset::kManual);
    std::atomic<bool> inside{false};

    ~LoaderUser() { OsEventClose(go); }

    static void Run(void* argument) {
        auto* self = static_cast<LoaderUser*>(argument);
        ULONG outcome = 0;
        ULONG_PTR cookie = 0;
        Find<LONG(WINAPI*)(ULONG, ULONG*, ULONG_PTR*)>("LdrLockLoaderLock")(0, &outcome, &cookie);
        self->inside = true;
        OsEventWait(self->go, -1);
        Find<LONG(WINAPI*)(ULONG, ULONG_PTR)>("LdrUnlockLoaderLock")(0, cookie);
    }

private:
    template <typename Function>
    static Function Find(const char* name) {
        return reinterpret_cast<Function>(
            reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("ntdll.dll"), name)));
    }
};

TEST(Termination, LeavesAThreadAloneThatKeepsTheLoader) {
    LoaderUser user;
    OsThread* thread = OsThreadStart(&LoaderUser::Run, &user, "Tarvik test");
    ASSERT_TRUE(Eventually([&] { return user.inside.load(); }));
    EXPECT_FALSE(OsThreadTerminate(thread));
    EXPECT_FALSE(OsAllowUnloading(0));
    OsEventSet(user.go);
    EXPECT_TRUE(OsThreadJoin(thread, 10'000));
    OsThreadClose(thread);
}

// A thread that waits until a lock is free, and one that sleeps inside a lock.
struct LockUsers {
    OsLock lock, sleepers_lock;
    OsCondition wake;
    bool sleeping = false, awake = false;  // guarded by sleepers_lock
    OsEvent* end = OsEventCreate(EventReset::kManual);
    std::atomic<int> outside{0};
    OsThread* waiter = nullptr;
    OsThread* sleeper = nullptr;

    ~LockUsers() {
        OsThreadClose(waiter);
        OsThreadClose(sleeper);
        OsEventClose(end);
    }

    // The system counts owner and waiters.
    LONG Count() { return *const_cast<volatile LONG*>(&Section()->LockCount); }

    void StartBoth() {
        lock.Enter();
        const LONG with_owner_only = Count();
        waiter = OsThreadStart(&LockUsers::Wait, this, "Tarvik test");
        sleeper = OsThreadStart(&LockUsers::Sleep, this, "Tarvik test");
        EXPECT_TRUE(Eventually([&] { return Count() != with_owner_only; }));
        EXPECT_TRUE(Eventually([&] {
            const LockGuard hold(sleepers_lock);
            return sleeping;
        }));
    }

    void ReleaseBoth() {
        lock.Leave();
        {
            const LockGuard hold(sleepers_lock);
            awake = true;
        }
        wake.WakeAll();
    }

private:
    CRITICAL_SECTION* Section() { return static_cast<CRITICAL_SECTION*>(lock.Address()); }

    static void Wait(void* argument) {
        auto* self = static_cast<LockUsers*>(argument);
        { const LockGuard hold(self->lock); }
        self->AwaitEnd();
    }
    static void Sleep(void* argument) {
        auto* self = static_cast<LockUsers*>(argument);
        {
            const LockGuard hold(self->sleepers_lock);
            self->sleeping = true;
            while (!self->awake)
                self->wake.Wait(self->sleepers_lock, -1);
        }
        self->AwaitEnd();
    }
    void AwaitEnd() {
        ++outside;
        OsEventWait(end, -1);
    }
};

TEST(Termination, LeavesThreadsAloneThatWaitInALockUntilTheyAreOutside) {
    LockUsers users;
    users.StartBoth();
    {
        const test::Thread other([&] { EXPECT_FALSE(OsThreadTerminate(users.waiter)); });
        EXPECT_FALSE(OsThreadTerminate(users.sleeper));
    }
    users.ReleaseBoth();
    EXPECT_TRUE(Eventually([&] { return users.outside == 2; }));
    EXPECT_TRUE(OsThreadTerminate(users.waiter));
    EXPECT_TRUE(OsThreadTerminate(users.sleeper));
    const LockGuard hold(users.lock);
    const LockGuard hold_other(users.sleepers_lock);
}

}  // namespace
}  // namespace tarvik
