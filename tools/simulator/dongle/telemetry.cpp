#include "dongle/telemetry.h"

#include <nlohmann/json.hpp>

namespace brennix {

namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr std::uint32_t kWholeLoad = 10'000;  // hundredths of a percent

struct Task {
    const char* name;
    std::uint32_t load;
    std::uint32_t stack_free;
    std::uint32_t state;
    std::uint32_t priority;
};

// The rest of the load goes to the idle task.
constexpr Task kTasks[] = {
    {"can_rx", 640, 1320, 2, 20}, {"can_tx", 210, 1404, 2, 19}, {"isotp", 380, 2210, 2, 18},
    {"usb_rx", 450, 1876, 2, 17}, {"usb_tx", 330, 1902, 2, 17}, {"request", 520, 3120, 3, 15},
    {"tester", 40, 1048, 3, 12},  {"tele", 90, 2644, 1, 3},     {"log", 70, 1512, 3, 2},
};

// A small number that looks like measured noise, the same for the same arguments.
std::uint32_t Wobble(std::uint64_t step, std::uint32_t salt, std::uint32_t below) {
    const std::uint64_t mixed = (step + 1) * 0x9E3779B97F4A7C15u + salt * 0xBF58476D1CE4E5B9u;
    return static_cast<std::uint32_t>((mixed >> 32) % below);
}

OrderedJson MakeTask(const std::string& name, std::uint32_t load, std::uint64_t running,
                     const Task& task) {
    return {{"n", name},        {"x", load},         {"r", running}, {"s", task.stack_free},
            {"st", task.state}, {"p", task.priority}};
}

OrderedJson MakeTasks(std::uint64_t step) {
    OrderedJson tasks = OrderedJson::array();
    std::uint32_t busy = 0;
    std::uint32_t salt = 0;
    for (const Task& task : kTasks) {
        const std::uint32_t load = task.load + Wobble(step, ++salt, task.load / 4 + 1);
        busy += load;
        tasks.push_back(MakeTask(task.name, load, load / 10, task));
    }
    const std::uint32_t idle = kWholeLoad - busy;
    tasks.push_back(MakeTask("idle", idle, idle / 10, {"idle", 0, 612, 1, 0}));
    return tasks;
}

}  // namespace

std::string MakeTelemetry(const Health& health) {
    const std::uint64_t step = health.uptime_ms / 1000;
    // The tasks are last, so that readers that search for a key find the dongle's own values first.
    const OrderedJson report = {{"v", 1},
                                {"u", health.uptime_ms},
                                {"rt", 900 + Wobble(step, 101, 200)},
                                {"rhz", 1000},
                                {"cr", health.requests_waiting},
                                {"ct", Wobble(step, 102, 3)},
                                {"can", health.frames_sent % 8},
                                {"si", 40 + Wobble(step, 103, 20)},
                                {"mx", 120 + Wobble(step, 104, 60)},
                                {"ru", 4 + Wobble(step, 105, 4)},
                                {"bat", health.power.battery_mv},
                                {"ign", health.power.ignition ? 1 : 0},
                                {"tasks", MakeTasks(step)}};
    return report.dump();
}

}  // namespace brennix
