#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace conformance {

// Somebody who pulls the simulated dongles out and puts them back, in one way or another, as long
// as this lives. In the end all of them are plugged in.
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
