// The transport's time limits in these tests: the library's own, except where a busy machine needs
// more patience or a test would only wait.
#define GetBleLimits LibraryBleLimits
#include "transport/ble/ble_limits.cpp"
#undef GetBleLimits

namespace tarvik {

const BleLimits& GetBleLimits() {
    static const BleLimits limits = [] {
        BleLimits changed = LibraryBleLimits();
        changed.login_wait_ms = 10'000;
        changed.thread_end_ms = 10'000;
        changed.close_poll_ms = 5;
        return changed;
    }();
    return limits;
}

}  // namespace tarvik
