#pragma once

// What the fuzz targets share. Each of them takes one input as one packet, or as a row of packets,
// and ends the process when something holds that must not.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "link/packet_queue.h"
#include "support/log.h"

namespace tarvik::fuzz {

inline void Require(bool holds) {
    if (!holds) std::abort();
}

// The descriptors of an open file lead nowhere from now on.
inline void SendNowhere(const std::string& path) {
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    Require(nowhere >= 0);
    bool found = false;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != path) continue;
        Require(::dup2(nowhere, std::stoi(entry.path().filename())) >= 0);
        found = true;
    }
    ::close(nowhere);
    Require(found);
}

// Console lines and the debug log are formatted as ever, and go nowhere.
inline void SilenceOutput() {
    Require(std::freopen("/dev/null", "w", stdout) != nullptr);
    const char* const parent = std::getenv("TMPDIR");
    std::string folder = std::string(parent != nullptr ? parent : "/tmp") + "/fuzz-XXXXXX";
    Require(::mkdtemp(folder.data()) != nullptr);
    Require(::setenv("TMPDIR", folder.c_str(), 1) == 0);
    OpenDebugLog(true);
    Require(LogEnabled(kLogTrace));
    SendNowhere(folder + "/dpdu_debug_" + std::to_string(::getpid()) + ".log");
    std::filesystem::remove_all(folder);
}

// The input as the payload of a packet of this type.
inline PacketPtr PacketFrom(std::uint32_t type, const std::uint8_t* data, std::size_t size) {
    size = std::min<std::size_t>(size, MAX_PKT_SIZE - MIN_PKT_SIZE);
    PacketPtr packet = MakePacket(type, static_cast<std::uint32_t>(MIN_PKT_SIZE + size));
    Require(packet != nullptr);
    if (size > 0) std::memcpy(packet->Bytes() + MIN_PKT_SIZE, data, size);
    return packet;
}

struct Dongle : DeviceQueues {
    Dongle() {
        InitializeQueue(&rx);
        InitializeQueue(&tx);
        available = true;
    }
    ~Dongle() {
        available = false;
        FreeQueue(&rx);
        FreeQueue(&tx);
    }
};

}  // namespace tarvik::fuzz
