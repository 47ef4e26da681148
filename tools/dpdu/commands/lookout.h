// Looks for modules while a command does something else.

#ifndef TOOLS_DPDU_COMMANDS_LOOKOUT_H
#define TOOLS_DPDU_COMMANDS_LOOKOUT_H

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "pdu/modules.h"

namespace dpdu {

// Many libraries notice that a module is gone only while they look for modules, which takes some
// 100 ms, with Bluetooth seconds. So a thread of its own does that, when there has been no sign of
// life for a while. It does so rarely: a module that is too busy to answer a search counts as gone.
class Lookout {
public:
    // With a longest pause it looks that often in any case.
    explicit Lookout(const ConnectedModule& module,
                     std::optional<std::chrono::milliseconds> longest_pause = std::nullopt);
    // Waits until the library has ended its search.
    ~Lookout();
    Lookout(const Lookout&) = delete;
    Lookout& operator=(const Lookout&) = delete;

    // A module that lives is not gone, whatever a search has found.
    void NoteSignOfLife();
    // The library has reported an error: signs of life do not count until it has searched.
    void NoteError();
    // Throws what the library has refused.
    bool IsGone();
    // What the library has found since the last call.
    std::optional<std::vector<ModuleInfo>> TakeModules();

private:
    using Clock = std::chrono::steady_clock;

    void Run();
    void Look();
    Clock::time_point NextLook() const;

    Session* const session_;
    const UNUM32 module_;
    const std::optional<std::chrono::milliseconds> longest_pause_;
    std::mutex lock_;
    std::condition_variable changed_;
    bool is_ending_ = false;  // guarded by lock_, as what follows
    bool is_gone_ = false;
    bool has_error_ = false;
    std::optional<std::vector<ModuleInfo>> modules_;
    std::exception_ptr failure_;
    Clock::time_point last_sign_;
    Clock::time_point last_look_;
    std::thread thread_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_LOOKOUT_H
