#include "conformance/endurance/call_watchdog.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "conformance/framework/system.h"

namespace conformance {
namespace {

constexpr std::chrono::milliseconds kLookEvery{500};

// 0 if the caller is not in a function of the library.
std::uint64_t Lasts(const CurrentCall& call, std::uint64_t now_ms) {
    const std::uint64_t since_ms = call.since_ms.load();
    return call.function.load() == nullptr || since_ms > now_ms ? 0 : now_ms - since_ms;
}

}  // namespace

CallWatchdog::CallWatchdog(const std::vector<CurrentCall>& calls, std::chrono::milliseconds limit)
    : calls_(calls), limit_(limit), thread_([this] { Watch(); }) {}

CallWatchdog::~CallWatchdog() {
    {
        const std::lock_guard hold(lock_);
        stop_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void CallWatchdog::Watch() {
    std::unique_lock hold(lock_);
    while (!changed_.wait_for(hold, kLookEvery, [this] { return stop_; }))
        AbortIfOneHangs();
}

void CallWatchdog::AbortIfOneHangs() const {
    const std::uint64_t now_ms = TickMs();
    const auto limit_ms = static_cast<std::uint64_t>(limit_.count());
    const auto hangs = [&](const CurrentCall& call) { return Lasts(call, now_ms) > limit_ms; };
    if (std::none_of(calls_.begin(), calls_.end(), hangs)) return;
    for (std::size_t i = 0; i < calls_.size(); ++i) {
        const char* function = calls_[i].function.load();
        std::fprintf(stderr, "caller %zu: %s for %llu ms%s\n", i,
                     function == nullptr ? "nothing" : function,
                     static_cast<unsigned long long>(Lasts(calls_[i], now_ms)),
                     hangs(calls_[i]) ? ", HANGS" : "");
    }
    std::abort();
}

}  // namespace conformance
