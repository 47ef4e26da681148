// The library is unloaded while a thread of it has not ended: its code must stay until it has.

#include <atomic>
#include <string>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/link.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/process_end.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"
#include "conformance/framework/waiting.h"

using namespace conformance;

namespace {

// What the callback does, on the library's thread.
std::function<void()>& InCallback() {
    static std::function<void()> action;
    return action;
}

// An application's callback often cannot be unwound.
void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void*) noexcept {
    try {
        InCallback()();
    } catch (...) {
        std::abort();
    }
}

// Loaded by this process for the only time, constructed, with a link to the dongle.
class UnloadedLibrary {
public:
    UnloadedLibrary() : library_(LibraryPath()) {
        Settings{.useSerial = true}.Store();
        EXPECT_TRUE(library_.IsLoaded()) << library_.Error();
        EXPECT_EQ(library_->PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        EXPECT_TRUE(EventuallyConnected([this] { return FindModule(); }));
        EXPECT_EQ(library_->PDUCreateComLogicalLink(hMod_, nullptr, 2001, nullptr, &hCLL_, nullptr),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(library_->PDUConnect(hMod_, hCLL_), PDU_STATUS_NOERROR);
    }

    // Makes the worker run `action` inside the link's callback.
    void Call(std::function<void()> action) {
        InCallback() = std::move(action);
        EXPECT_EQ(library_->PDURegisterEventCallback(hMod_, hCLL_, OnEvent), PDU_STATUS_NOERROR);
        EXPECT_EQ(library_->PDUStartComPrimitive(hMod_, hCLL_, PDU_COPT_UPDATEPARAM, 0, nullptr,
                                                 nullptr, nullptr, nullptr),
                  PDU_STATUS_NOERROR);
    }
    void DestroyLink() {
        EXPECT_EQ(library_->PDUDestroyComLogicalLink(hMod_, hCLL_), PDU_STATUS_NOERROR);
    }
    void Destruct() { EXPECT_EQ(library_->PDUDestruct(), PDU_STATUS_NOERROR); }
    void Unload() { EXPECT_TRUE(library_.Unload()); }

private:
    bool FindModule() {
        PDU_MODULE_ITEM* modules = nullptr;
        if (library_->PDUGetModuleIds(&modules) != PDU_STATUS_NOERROR) return false;
        const bool found = modules->NumEntries > 0;
        if (found) hMod_ = modules->pModuleData[0].hMod;
        library_->PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(modules));
        return found;
    }

    LibraryInstance library_;
    UNUM32 hMod_ = PDU_HANDLE_UNDEF;
    UNUM32 hCLL_ = PDU_HANDLE_UNDEF;
};

// Keeps the thread inside a callback until Leave. It owns nothing meanwhile: it may be terminated.
class LongCallback {
public:
    std::function<void()> Action() {
        return [this] {
            entered_ = true;
            Eventually([this] { return leave_.load(); });
        };
    }
    bool AwaitEntry() {
        return Eventually([this] { return entered_.load(); });
    }
    void Leave() { leave_ = true; }

private:
    std::atomic<bool> entered_{false};
    std::atomic<bool> leave_{false};
};

bool WorkerHasExited(const LogCapture& log) {
    return Eventually([&] { return log.Has("[CommThreadFunc] exiting"); });
}

}  // namespace

// Where threads can be terminated, the worker does not get that far.
FRESH_PROCESS_TEST(LibraryEnd, WorkerStuckInACallbackMayReturnAfterUnloading) {
    UnloadedLibrary library;
    static LongCallback callback;
    library.Call(callback.Action());
    ASSERT_TRUE(callback.AwaitEntry());
    const LogCapture log;
    library.Destruct();
    EXPECT_TRUE(log.HasLike("[PDUDestruct] Thread 0x* for link #0 did not exit, terminating"));
    library.Unload();
    callback.Leave();
    EXPECT_TRUE(kTerminatesThreads || WorkerHasExited(log));
}

FRESH_PROCESS_TEST(LibraryEnd, LibraryMayBeUnloadedWhileAWorkerIsInsideItsDestruct) {
    UnloadedLibrary library;
    static LongCallback callback;
    library.Call([&library] {
        library.Destruct();
        callback.Action()();
    });
    ASSERT_TRUE(callback.AwaitEntry());
    library.Unload();
    const LogCapture log;
    callback.Leave();
    EXPECT_TRUE(WorkerHasExited(log));
}

FRESH_PROCESS_TEST(LibraryEnd, DestroyedLinkInsideACallbackIsNeitherWaitedForNorTerminated) {
    UnloadedLibrary library;
    static LongCallback callback;
    library.Call(callback.Action());
    ASSERT_TRUE(callback.AwaitEntry());
    library.DestroyLink();
    const LogCapture log;
    library.Destruct();
    EXPECT_TRUE(log.HasLike("[PDUDestruct] Checking 1 logical links for module *"));
    EXPECT_FALSE(log.HasLike("*LogicalLink #0*"));
    EXPECT_FALSE(log.HasLike("*terminating"));
    library.Unload();
    callback.Leave();
    EXPECT_TRUE(WorkerHasExited(log));
}

FRESH_PROCESS_TEST(LibraryEnd, ThreadsKeepRunningIfTheApplicationUnloadsWithoutDestruct) {
    UnloadedLibrary library;
    static LongCallback callback;
    library.Call(callback.Action());
    ASSERT_TRUE(callback.AwaitEntry());
    const LogCapture log;
    library.Unload();
    callback.Leave();
    EXPECT_TRUE(Eventually([&] { return log.HasLike("[CommThreadFunc] free CoP #*"); }));
}

// Otherwise nothing of it could be replaced while the application runs.
FRESH_PROCESS_TEST(LibraryEnd, IsUnloadedAfterADestructThatEndedEveryThread) {
    UnloadedLibrary library;
    library.DestroyLink();
    library.Destruct();
    StdoutCapture console;
    library.Unload();
    EXPECT_EQ(console.Text(), "[DLL] Detaching the Tarvik D-PDU DLL\n");
}

FRESH_PROCESS_TEST(LibraryEnd, MayComeWithTheProcessWhileRequestsRun) {
    ExitWhileRequestsRun();
    Simulator().Reset();
    Settings{.useSerial = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    KeepRequesting(FindModule());
}
