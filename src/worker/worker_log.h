#pragma once

#include "support/log.h"

// A line of one of a link's threads: the thread's function, and the source line that wrote it.
#define LINK_THREAD_LOG(function, format, ...)                     \
    ::tarvik::Log(::tarvik::kLogTrace, "[%s:%d]" format, function, \
                  __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#define WORKER_LOG(format, ...) LINK_THREAD_LOG("CommThreadFunc", format __VA_OPT__(, ) __VA_ARGS__)
#define RECEIVER_LOG(format, ...) \
    LINK_THREAD_LOG("CommReceiveFunc", format __VA_OPT__(, ) __VA_ARGS__)
