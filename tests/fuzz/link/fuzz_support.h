#pragma once

// Shared by the fuzz targets. Each takes an input as one packet or a sequence of packets, and ends
// the process if a requirement does not hold.

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

// From now on the file's descriptor writes to nowhere.
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

// Console and debug log lines are formatted as usual, then discarded.
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
