#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace conformance {

// Unplugs and replugs the simulated dongles in various ways during its lifetime. At its end all of
// them are plugged in.
class RestlessDongles {
public:
    RestlessDongles(std::uint32_t dongles, std::uint32_t seed);
    ~RestlessDongles();
    RestlessDongles(const RestlessDongles&) = delete;
    RestlessDongles& operator=(const RestlessDongles&) = delete;

    std::uint64_t TimesPulledOut() const { return pulled_out_.load(); }

private:
    void Run(std::uint32_t dongles, std::uint32_t seed);

    std::atomic<bool> stop_{false};
    std::atomic<std::uint64_t> pulled_out_{0};
    std::thread thread_;
};

}  // namespace conformance
