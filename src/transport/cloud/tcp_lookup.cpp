#include "transport/cloud/tcp_lookup.h"

#include <utility>

#include "platform/lock.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {

static constexpr std::int32_t kLookForAbortMs = 50;
static constexpr std::size_t kTextCapacity = 256;

namespace {
// Shared by the thread that looks up and the one that waits for it; the last of the two deletes it.
struct LookUp {
    std::atomic<int> references{2};
    char host[kTextCapacity];
    char port[kTextCapacity];
    OsLock lock;
    OsCondition changed;
    bool done = false;  // guarded by lock, as what follows
    int result = 0;
    TcpAddresses* addresses = nullptr;  // until somebody takes them
};
}  // namespace

static void Release(LookUp* look_up) {
    if (--look_up->references != 0) return;
    if (look_up->addresses != nullptr) FreeTcpAddresses(look_up->addresses);
    DeleteTracked(look_up);
}

static void RunLookUp(void* argument) {
    auto* const look_up = static_cast<LookUp*>(argument);
    TcpAddresses* addresses = nullptr;
    StartNetwork();  // its user may be gone before the answer
    const int result = ResolveTcp(look_up->host, look_up->port, &addresses);
    EndNetwork();
    {
        const LockGuard hold(look_up->lock);
        look_up->result = result;
        look_up->addresses = addresses;
        look_up->done = true;
        look_up->changed.WakeAll();
    }
    Release(look_up);
}

// False: aborted first.
static bool AwaitEnd(LookUp* look_up, const std::atomic<bool>& abort) {
    const LockGuard hold(look_up->lock);
    while (!look_up->done && !abort)
        look_up->changed.Wait(look_up->lock, kLookForAbortMs);
    return look_up->done;
}

int LookUpTcp(const char* host, const char* port, const std::atomic<bool>& abort,
              TcpAddresses** addresses) {
    auto* const look_up = NewTracked<LookUp>();
    if (look_up == nullptr) return ResolveTcp(host, port, addresses);
    FormatText(look_up->host, sizeof look_up->host, "%s", host);
    FormatText(look_up->port, sizeof look_up->port, "%s", port);
    OsThread* const thread = OsThreadStart(RunLookUp, look_up, "Tarvik CloudLookUp");
    if (thread == nullptr) {
        DeleteTracked(look_up);
        return ResolveTcp(host, port, addresses);
    }
    int result = kLookUpAborted;
    if (AwaitEnd(look_up, abort)) {
        OsThreadJoin(thread, -1);
        result = look_up->result;
        *addresses = std::exchange(look_up->addresses, nullptr);
    } else {
        OsKeepLibraryLoaded();
    }
    OsThreadClose(thread);
    Release(look_up);
    return result;
}

}  // namespace tarvik
