#pragma once

#include <cstdint>

#include "api/dpdu_types.h"
#include "api/link_record.h"
#include "platform/immortal.h"

// Event queues and callbacks. Callbacks run on the thread that produced the event, after the item
// is in its queue, with no lock of the library held.
namespace tarvik {

extern Immortal<ItemQueue> SystemEventQueue;

bool CallSystemEventCBR(std::uint32_t hMod, std::uint32_t hCLL, void* pCllTag, void* pAPITag);
bool CallModuleEventCBR(std::uint32_t hMod, std::uint32_t hCLL, void* pCllTag, void* pAPITag);
// Tests the link by its own record, not through the module table: an application that keeps the
// module lock still gets its events.
bool CallComLogicalLinkEventCBR(LinkRecord* link);

// Puts an item into the link's event queue; one that cannot be queued any more is released.
void AppendLinkEvent(LinkRecord* link, PDU_EVENT_ITEM* item);

// Releases an event item that never reached the application.
void ReleaseQueuedEvent(void* item);

void NotifySystemModuleListChanged();

}  // namespace tarvik
