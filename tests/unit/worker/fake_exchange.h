#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "link/comm_request.h"

// Stands in for link/comm_request.cpp, of which the linker then takes nothing.
namespace tarvik::test {

// What a request meets; empty: the exchange fails. Set by the test before the worker runs.
inline std::function<bool(const CommLink&, const CommRequestData&, CommAnswer*)> exchange;
inline std::function<bool(const CommLink&, CommMultiRequest&, const std::atomic<bool>*)>
    multi_exchange;

}  // namespace tarvik::test
