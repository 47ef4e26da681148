#pragma once

#include <cstdint>

#include "link/packet_queue.h"

namespace tarvik::test {

// How long the library shall wait for a dongle's answer to what it has just sent, instead of
// `timeout_ms`: asked before each such wait of a program that links answer_wait.cpp, which defines
// it. The waits of the tests themselves are left alone.
std::uint32_t TimeForAnswer(DeviceQueues* queues, std::uint32_t type, std::uint32_t timeout_ms);

}  // namespace tarvik::test
