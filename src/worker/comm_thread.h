#pragma once

#include "objects/link_record.h"

namespace tarvik {

// Starts the worker thread of a link, CommThreadFunc, with a reference of its own. It takes
// ComPrimitives one at a time until `running` of the link is cleared. False: the system refused.
// `function` is the tag of the log line.
bool StartWorker(const char* function, LinkRecord* link);

}  // namespace tarvik
