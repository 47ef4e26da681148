#pragma once

// What the fuzz targets share. Each of them takes one input as one packet, or as a row of packets,
// and ends the process when something holds that must not.

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "link/packet_queue.h"
#include "support/log.h"

namespace tarvik::fuzz {

inline void Require(bool holds) {
    if (!holds) std::abort();
}

// Console lines and the debug log are formatted as ever, and go nowhere.
inline void SilenceOutput() {
    Require(std::freopen("/dev/null", "w", stdout) != nullptr);
    const char* const parent = std::getenv("TMPDIR");
    std::string folder = std::string(parent != nullptr ? parent : "/tmp") + "/fuzz-XXXXXX";
    Require(::mkdtemp(folder.data()) != nullptr);
    Require(::setenv("TMPDIR", folder.c_str(), 1) == 0);
    const std::string log = folder + "/dpdu_debug_" + std::to_string(::getpid()) + ".log";
    Require(::symlink("/dev/null", log.c_str()) == 0);
    OpenDebugLog(true);
    Require(LogEnabled(kLogTrace));
    ::unlink(log.c_str());
    ::rmdir(folder.c_str());
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
