#pragma once

#include "support/log.h"

// A line of the link worker: tag "CommThreadFunc", and the source line that wrote it.
#define WORKER_LOG(format, ...) \
    ::tarvik::Log(::tarvik::kLogTrace, "[%s:%d]" format, "CommThreadFunc", __LINE__ __VA_OPT__(, ) __VA_ARGS__)
