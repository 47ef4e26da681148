#pragma once

#include <cstdint>

#include "api/dpdu_types.h"
#include "api/link_record.h"

namespace tarvik {

// Stores the state, produces the status item and calls the callback, also when nothing changed.
// Does nothing for a link that has been destroyed.
void SetLinkState(LinkRecord* link, std::uint32_t new_state);

// The worker thread of a link (argument: the record, with one reference of the worker's own).
void CommThreadFunc(void* argument);

// Ends every link of every module and releases the link arrays. Part of PDUDestruct.
void StopAllLinks();

}  // namespace tarvik
