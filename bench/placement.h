#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

// Which core a thread runs on. Where two threads take turns, a hand-off costs some forty times as
// much when it wakes the other core as when both share one, and which of the two happens is up to
// the scheduler. Benchmarks of one request at a time therefore say where their threads run, the
// same for the library and for its floor.
namespace tarvik::bench {

inline constexpr int kAnyCore = -1;

struct Placement {
    const char* text;  // for the tables; empty: as the scheduler likes
    int asking;        // the thread that asks, and the transport's own threads
    int answering;     // the link's worker, and the other end of the wire
};
inline constexpr Placement kAnywhere = {"", kAnyCore, kAnyCore};
inline constexpr Placement kOneCore = {"one core", 0, 0};
inline constexpr Placement kTwoCores = {"two cores", 0, 1};  // every hand-off wakes the other

void PlaceThisThread(int core);
// All threads of a process; those to come inherit it.
void PlaceProcess(pid_t process, int core);
// The `count` threads of this process whose names begin like this; waits until they have them.
void PlaceThreadsNamed(std::string_view prefix, std::size_t count, int core);
// The threads of the library with so many links, and the simulator that has started this program.
void PlaceLibrary(const Placement& placement, std::size_t links);

}  // namespace tarvik::bench
