#include "placement.h"

#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace tarvik::bench {
namespace {

void PlaceThread(pid_t thread, int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    if (core == kAnyCore) {
        const auto count = static_cast<unsigned>(::sysconf(_SC_NPROCESSORS_CONF));
        for (unsigned i = 0; i < count; ++i)
            CPU_SET(i, &cores);
    } else {
        CPU_SET(static_cast<unsigned>(core), &cores);
    }
    ::sched_setaffinity(thread, sizeof cores, &cores);
}

void ForEachThread(pid_t process,
                   const std::function<void(pid_t thread, const std::string& name)>& action) {
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        action(static_cast<pid_t>(std::stol(task.path().filename().string())), name);
    }
}

}  // namespace

void PlaceThisThread(int core) { PlaceThread(0, core); }

void PlaceProcess(pid_t process, int core) {
    ForEachThread(process, [core](pid_t thread, const std::string&) { PlaceThread(thread, core); });
}

void PlaceThreadsNamed(std::string_view prefix, std::size_t count, int core) {
    for (std::size_t placed = 0; placed < count;) {
        placed = 0;
        ForEachThread(::getpid(), [&](pid_t thread, const std::string& name) {
            if (!name.starts_with(prefix)) return;
            PlaceThread(thread, core);
            ++placed;
        });
        if (placed < count) ::usleep(1000);
    }
}

void PlaceLibrary(const Placement& placement, std::size_t links) {
    PlaceThreadsNamed("Tarvik CommThre", links, placement.answering);
    PlaceThreadsNamed("Tarvik SerialTx", 1, placement.asking);
    PlaceThreadsNamed("Tarvik SerialRx", 1, placement.asking);
    PlaceProcess(::getppid(), placement.answering);
}

}  // namespace tarvik::bench
