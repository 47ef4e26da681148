#pragma once

#include <cstdint>

#include "dpdu_types.h"
#include "objects/item_queue.h"
#include "objects/items.h"
#include "objects/link_record.h"
#include "platform/immortal.h"

// Event queues and callbacks. Callbacks run on the thread that produced the event, after the item
// is in its queue, with no lock of the library held.
namespace tarvik {

extern Immortal<ItemQueue<EventPtr>> SystemEventQueue;

// Null removes the callback. There is one for all modules; a link has its own in its record.
void SetSystemCallback(CALLBACKFNC callback);
void SetModuleCallback(CALLBACKFNC callback);

bool CallSystemEventCBR(std::uint32_t hMod, std::uint32_t hCLL, void* pCllTag, void* pAPITag);
bool CallModuleEventCBR(std::uint32_t hMod, std::uint32_t hCLL, void* pCllTag, void* pAPITag);
// Looks at the link's own record, not at the module table: an application that keeps the module
// lock still gets its events.
bool CallComLogicalLinkEventCBR(LinkRecord* link);

// Puts an item into the link's event queue, or releases it if it can no longer be queued.
void AppendLinkEvent(LinkRecord* link, EventPtr item);

void NotifySystemModuleListChanged();

}  // namespace tarvik
