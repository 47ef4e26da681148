#pragma once

// Read by cppcheck instead of src/worker/worker_log.h, whose __VA_OPT__ it does not understand.

#include "support/log.h"

#define WORKER_LOG(...) ::tarvik::Log(::tarvik::kLogTrace, __VA_ARGS__)
#define RECEIVER_LOG(...) ::tarvik::Log(::tarvik::kLogTrace, __VA_ARGS__)
