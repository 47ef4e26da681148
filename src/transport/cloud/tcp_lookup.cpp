#include "transport/cloud/tcp_lookup.h"

#include <utility>

#include "platform/lock.h"
#include "platform/thread.h"
#include "support/counted.h"
#include "support/log.h"
#include "transport/cloud/cloud_limits.h"

namespace tarvik {
namespace {

constexpr std::size_t kTextCapacity = 256;

// Shared by the thread that looks up and the thread that waits for it.
struct LookUp : Counted {
    ~LookUp() {
        if (addresses != nullptr) FreeTcpAddresses(addresses);
    }

    char host[kTextCapacity];
    char port[kTextCapacity];
    OsLock lock;  // guards all below
    OsCondition changed;
    bool done = false;
    int result = 0;
    TcpAddresses* addresses = nullptr;  // until somebody takes them
};

// Takes over a reference to its look-up.
void RunLookUp(void* argument) {
    const auto look_up = Ref<LookUp>::Adopt(static_cast<LookUp*>(argument));
    TcpAddresses* addresses = nullptr;
    StartNetwork();  // its user may be gone before the answer
    const int result = ResolveTcp(look_up->host, look_up->port, &addresses);
    EndNetwork();
    const LockGuard hold(look_up->lock);
    look_up->result = result;
    look_up->addresses = addresses;
    look_up->done = true;
    look_up->changed.WakeAll();
}

// False: aborted first.
bool AwaitEnd(LookUp* look_up, const std::atomic<bool>& abort) {
    const LockGuard hold(look_up->lock);
    while (!look_up->done && !abort)
        look_up->changed.Wait(look_up->lock, GetCloudLimits().connect_poll_ms);
    return look_up->done;
}

}  // namespace

int LookUpTcp(const char* host, const char* port, const std::atomic<bool>& abort,
              TcpAddresses** addresses) {
    const Ref<LookUp> look_up = MakeCounted<LookUp>();
    if (!look_up) return ResolveTcp(host, port, addresses);
    FormatText(look_up->host, sizeof look_up->host, "%s", host);
    FormatText(look_up->port, sizeof look_up->port, "%s", port);
    Ref<LookUp> shared = look_up;
    OsThread* const thread = OsThreadStart(RunLookUp, shared.Get(), "Tarvik CloudLookUp");
    if (thread == nullptr) return ResolveTcp(host, port, addresses);
    static_cast<void>(shared.Detach());  // the thread's now
    int result = kLookUpAborted;
    if (AwaitEnd(look_up.Get(), abort)) {
        OsThreadJoin(thread, -1);
        result = look_up->result;
        *addresses = std::exchange(look_up->addresses, nullptr);
    }
    OsThreadClose(thread);
    return result;
}

}  // namespace tarvik
