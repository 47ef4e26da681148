#include "support/console_output.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/console.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/thread.h"

namespace tarvik {
namespace {

constexpr std::int32_t kPatienceMs = 1000;
constexpr std::size_t kRoom = 65'536;
constexpr std::size_t kLongestPiece = 4096;  // so that a slow console does not seem paused

std::atomic<bool> every_thread_prints{false};

// Guards what follows. Never held while printing; no other lock is taken inside.
Immortal<OsLock> output_lock;
Immortal<OsCondition> text_queued;
Immortal<OsCondition> text_printed;
OsThread* printer = nullptr;  // between start and stop
bool printing = false;        // the thread takes text from the ring
bool stopping = false;
std::atomic<bool> paused{false};  // somebody waited in vain, and nothing was printed since
char ring[kRoom];                 // what is between the next two, modulo its size
std::uint64_t queued = 0;         // bytes of all times
std::uint64_t completed = 0;      // likewise

// Copies what is printed next. If not all of it fits, it ends with a whole line where possible.
std::size_t CopyPiece(char (&piece)[kLongestPiece]) {
    const auto waiting = static_cast<std::size_t>(queued - completed);
    const std::size_t length = std::min(waiting, kLongestPiece);
    const auto start = static_cast<std::size_t>(completed % kRoom);
    const std::size_t first = std::min(length, kRoom - start);
    std::memcpy(piece, ring + start, first);
    std::memcpy(piece + first, ring, length - first);
    if (length == waiting) return length;
    const std::string_view text(piece, length);
    const std::size_t line_end = text.rfind('\n');
    return line_end == std::string_view::npos ? length : line_end + 1;
}

void PrinterThread(void*) {
    output_lock->Enter();
    for (;;) {
        while (queued == completed && !stopping)
            text_queued->Wait(*output_lock, -1);
        if (queued == completed) break;
        char piece[kLongestPiece];
        const std::size_t length = CopyPiece(piece);
        output_lock->Leave();
        OsPrint(piece, length);
        output_lock->Enter();
        completed += length;
        paused = false;
        text_printed->WakeAll();
    }
    printing = false;
    output_lock->Leave();
}

// Waits until `done` holds; gives up when nothing is printed for the patience. The lock is held.
template <typename Condition>
bool WaitForPrinting(Condition done) {
    while (!done()) {
        const std::uint64_t before = completed;
        if (paused) return false;
        if (!text_printed->Wait(*output_lock, kPatienceMs) && completed == before) paused = true;
    }
    return true;
}

// False: it does not fit, and the console is paused. The lock is held.
bool QueueText(const char* text, std::size_t length) {
    if (paused && length > kRoom - static_cast<std::size_t>(queued - completed)) return false;
    while (length > 0) {
        if (!WaitForPrinting([] { return queued - completed < kRoom; })) return false;
        const auto at = static_cast<std::size_t>(queued % kRoom);
        const std::size_t free = kRoom - static_cast<std::size_t>(queued - completed);
        const std::size_t size = std::min({length, free, kRoom - at});
        std::memcpy(ring + at, text, size);
        queued += size;
        text += size;
        length -= size;
        text_queued->WakeAll();
    }
    return true;
}

bool StopPrinter() {
    const LockGuard guard(*output_lock);
    stopping = true;
    paused = false;  // it gets the patience again
    text_queued->WakeAll();
    return WaitForPrinting([] { return queued == completed; });
}

}  // namespace

void StartConsoleOutput() {
    const LockGuard guard(*output_lock);
    stopping = false;
    // An earlier thread that a paused console has held up since goes on.
    if (printing) return;
    printing = true;
    printer = OsThreadStart(&PrinterThread, nullptr, "Tarvik PrinterThread");
    if (printer == nullptr) printing = false;
}

void StopConsoleOutput() {
    const bool done = StopPrinter();
    if (printer == nullptr) return;  // refused, or left to itself by an earlier stop
    OsThreadJoin(printer, done ? kPatienceMs : 0);
    OsThreadClose(printer);
    printer = nullptr;
}

void EndConsoleOutput() {
    every_thread_prints = true;
    if (OsThreadsMayRun()) return;
    // Nobody uses the lock any more. If threads have met at it, it has a handle that would leak.
    text_printed->~OsCondition();
    text_queued->~OsCondition();
    output_lock->~OsLock();
}

bool ConsoleIsPaused() { return paused; }

void WriteConsoleText(const char* text, std::size_t length) {
    const TerminationShield shield;
    if (every_thread_prints) {
        // While the console is paused, the printing thread is inside the output.
        if (!paused) OsPrint(text, length);
        return;
    }
    const bool may_wait = OsStandardOutputMayWait();  // outside the lock: it may wait itself
    {
        const LockGuard guard(*output_lock);
        // A file needs no change of threads.
        if (printing && (queued != completed || may_wait)) {
            if (!QueueText(text, length)) return;
            const std::uint64_t end = queued;
            WaitForPrinting([end] { return completed >= end; });
            return;
        }
    }
    OsPrint(text, length);
}

}  // namespace tarvik
