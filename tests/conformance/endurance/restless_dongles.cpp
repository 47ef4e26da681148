#include "conformance/endurance/restless_dongles.h"

#include <chrono>
#include <random>
#include <string>

#include "conformance/framework/simulator.h"

namespace conformance {

RestlessDongles::RestlessDongles(std::uint32_t dongles, std::uint32_t seed)
    : thread_([this, dongles, seed] { Run(dongles, seed); }) {}

RestlessDongles::~RestlessDongles() {
    stop_.store(true);
    thread_.join();
}

void RestlessDongles::Run(std::uint32_t dongles, std::uint32_t seed) {
    // "cut": in the middle of a packet.
    static constexpr const char* kWays[] = {"unplug", "unplug device", "unplug port", "cut 13"};
    Simulator simulator;
    std::mt19937 random(seed);
    const auto below = [&random](std::uint32_t limit) {
        return static_cast<std::uint32_t>(random() % limit);
    };
    while (!stop_.load()) {
        // Long enough for the library to find it and for requests to be answered.
        std::this_thread::sleep_for(std::chrono::milliseconds(200 + below(800)));
        const std::string dongle = "@" + std::to_string(below(dongles)) + " ";
        simulator.Command(dongle + kWays[below(4)]);
        pulled_out_.fetch_add(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(below(300)));
        simulator.Command(dongle + "replug");
    }
    // Unplugging also ends a cut that has not happened yet.
    for (std::uint32_t i = 0; i < dongles; ++i) {
        simulator.Command("@" + std::to_string(i) + " unplug");
        simulator.Command("@" + std::to_string(i) + " replug");
    }
}

}  // namespace conformance
