#include "platform/posix/standard_descriptors.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/immortal.h"
#include "platform/lock.h"

namespace tarvik {
namespace {

constexpr int kFirstFree = 3;

Immortal<OsLock> lock;
int users = 0;                // guarded by the lock, as is the next
bool taken[kFirstFree] = {};  // by us

bool IsOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) >= 0; }

bool AreOpen() {
    for (int descriptor = 0; descriptor < kFirstFree; ++descriptor) {
        if (!IsOpen(descriptor)) return false;
    }
    return true;
}

// The system gives the lowest number that is free.
void TakeFreeOnes() {
    for (;;) {
        const int descriptor = ::open("/", O_PATH | O_CLOEXEC);
        if (descriptor >= 0 && descriptor < kFirstFree) {
            taken[descriptor] = true;
            continue;
        }
        if (descriptor >= 0) ::close(descriptor);
        return;
    }
}

// Unless the application has put another in its place meanwhile.
void GiveBack(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFL);
    if (flags >= 0 && (flags & O_PATH) != 0) ::close(descriptor);
}

}  // namespace

StandardDescriptorsTaken::StandardDescriptorsTaken() {
    const int error = errno;
    const LockGuard hold(*lock);
    ++users;
    if (!AreOpen()) TakeFreeOnes();
    errno = error;
}

StandardDescriptorsTaken::~StandardDescriptorsTaken() {
    const int error = errno;
    const LockGuard hold(*lock);
    if (--users == 0) {
        for (int descriptor = 0; descriptor < kFirstFree; ++descriptor) {
            if (taken[descriptor]) GiveBack(descriptor);
            taken[descriptor] = false;
        }
    }
    errno = error;
}

}  // namespace tarvik
