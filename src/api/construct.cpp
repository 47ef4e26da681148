#include "comparam/comparams.h"
#include "dpdu_api.h"
#include "objects/event_callbacks.h"
#include "objects/lifecycle.h"
#include "objects/modules.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "support/config.h"
#include "support/console_output.h"
#include "support/cop_trace.h"
#include "support/debug_console.h"
#include "support/log.h"
#include "transport/transport_table.h"
#include "worker/stop_links.h"

namespace tarvik {
namespace {

// How long PDUDestruct waits for calls of other threads that are still inside the library.
constexpr std::uint32_t kOtherCallsMs = 5000;
// How long it waits for threads that are about to end, so that the library can be unloaded.
constexpr std::uint32_t kLastThreadsMs = 250;

void OpenDiagnostics(const char* option, void* tag) {
    OpenDebugLog(config.enableDebugLogFile);
    if (config.showDebug) OpenDebugConsole();
    Log(kLogTrace, "[%s] PDUConstruct called ('%s', %p)", "PDUConstruct",
        option == nullptr ? "(null)" : option, tag);
    if (config.enableCopTrace) {
        StartCopTrace();
    } else {
        OsDebugOutput("[CopLog] Logging is DISABLED via config enableCopTrace=false\n");
    }
}

// The table's count is read again for every entry: an operation may register another transport.
void ForEachTransport(void (*Transport::*operation)()) {
    for (std::int32_t i = 0; i < TransportTable.count; ++i) {
        const Transport* transport = TransportTable.entries[i];
        if (transport->*operation != nullptr) (transport->*operation)();
    }
}

std::uint32_t Construct(const char* option, void* tag) {
    OsAdoptProcess();
    OsChooseDebugOutput();
    LoadConfig(&config);
    OpenDiagnostics(option, tag);
    SetApiTag(tag);
    // The queue is already initialised, and empty, if an earlier construct failed half-way.
    SystemEventQueue->Initialize();
    if (!AllocParamItems()) return PDU_ERR_FCT_FAILED;
    ForEachTransport(&Transport::Init);
    ForEachTransport(&Transport::Start);
    return PDU_STATUS_NOERROR;
}

void Destruct() {
    // Lets other threads' calls end. The module table is emptied below anyway.
    ReleaseKeptModuleLock();
    StopAllLinks();
    FreeParamItems();
    ForEachTransport(&Transport::Stop);
    ForEachTransport(&Transport::Deinit);
    // A scan of another thread ends with its transports. Nothing may enter the tables after this.
    WaitForOtherApiCalls(kOtherCallsMs);
    SystemEventQueue->Free();
    ClearModuleTable();
    if (CopTraceActive()) StopCopTrace();
    StopConsoleOutput();
    OsAllowUnloading(kLastThreadsMs);
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUConstruct(CHAR8* OptionStr, void* pAPITag) {
    const ApiCall call;
    if (!ChangeLibraryState(Lifecycle::kNotConstructed, Lifecycle::kConstructing)) {
        return PDU_ERR_SHARING_VIOLATION;
    }
    StartConsoleOutput();
    const std::uint32_t status = Construct(OptionStr, pAPITag);
    const bool done = status == PDU_STATUS_NOERROR;
    if (!done) {
        StopConsoleOutput();
        OsAllowUnloading(kLastThreadsMs);
    }
    ChangeLibraryState(Lifecycle::kConstructing,
                       done ? Lifecycle::kConstructed : Lifecycle::kNotConstructed);
    if (done) Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return status;
}

extern "C" T_PDU_ERROR PDU_CALL PDUDestruct(void) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called", __func__);
    if (!ChangeLibraryState(Lifecycle::kConstructed, Lifecycle::kDestructing)) {
        // Another thread may be destructing, and waiting for what this one keeps.
        if (KeepsModuleLock()) ReleaseKeptModuleLock();
        Log(kLogTrace, "[%s] Not constructed, returning PDU_ERR_PDUAPI_NOT_CONSTRUCTED", __func__);
        return PDU_ERR_PDUAPI_NOT_CONSTRUCTED;
    }
    Destruct();
    ChangeLibraryState(Lifecycle::kDestructing, Lifecycle::kNotConstructed);
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}
