#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

// Assigns threads to cores. If two threads take turns, a hand-off that wakes the other core costs
// about forty times as much as one on the same core, and the scheduler decides which of the two
// happens. Benchmarks of one request at a time therefore fix the cores of their threads, the same
// for the library and its floor.
namespace tarvik::bench {

inline constexpr int kAnyCore = -1;

struct Placement {
    const char* text;  // for the tables; empty: the scheduler decides
    int asking;        // the requesting thread and the transport's threads
    int answering;     // the link's worker and the other end of the wire
};
inline constexpr Placement kAnywhere = {"", kAnyCore, kAnyCore};
inline constexpr Placement kOneCore = {"one core", 0, 0};
inline constexpr Placement kTwoCores = {"two cores", 0, 1};  // every hand-off wakes the other core

void PlaceThisThread(int core);
// All threads of a process; later threads inherit it.
void PlaceProcess(pid_t process, int core);
// The `count` threads of this process whose names start with `prefix`; waits until they exist.
void PlaceThreadsNamed(std::string_view prefix, std::size_t count, int core);
// The threads of the library with this many links, and the simulator that started this program.
void PlaceLibrary(const Placement& placement, std::size_t links);

}  // namespace tarvik::bench
