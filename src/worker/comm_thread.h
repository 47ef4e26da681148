#pragma once

#include "objects/link_record.h"

namespace tarvik {

// Starts a link's worker thread, CommThreadFunc, which holds a reference to the link. It executes
// ComPrimitives one at a time until the link's `running` is cleared. False: the system refused.
// `function` is the tag of the log line.
bool StartWorker(const char* function, LinkRecord* link);

}  // namespace tarvik
