#include "objects/state_changes.h"

#include <utility>

#include "objects/event_callbacks.h"
#include "objects/items.h"
#include "objects/lifecycle.h"
#include "platform/tick.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik {

void SetLinkState(LinkRecord* link, std::uint32_t new_state) {
    if (!link->running.load()) return;
    link->state.store(new_state);
    AppendLinkEvent(link, MakeStatusItem(PDU_HANDLE_UNDEF, nullptr, new_state));
    CallComLogicalLinkEventCBR(link);
}

void UpdateCopState(LinkRecord* link, ComPrimitive* cop, std::uint32_t new_state) {
    const std::uint32_t old_state = cop->state.load();
    if (new_state != old_state) {
        const std::uint64_t now = TickMs();
        cop->duration = cop->lastChange == 0 ? 0 : now - cop->lastChange;
        cop->lastChange = now;
        Log(kLogTrace, "[%s] CoP #%u Status: %04X, Duration: %llu ms", __func__, cop->hCoP,
            new_state, static_cast<unsigned long long>(cop->duration));
        TraceCopState(TraceIds(*cop), old_state, new_state, cop->duration);
    }
    cop->state.store(new_state);
    AppendLinkEvent(link, MakeStatusItem(cop->hCoP, cop->pCoPTag, new_state));
    const std::uint64_t begun =
        TraceNotifyBegin(TraceIds(*cop), PDU_IT_STATUS, PDU_EVT_DATA_AVAILABLE);
    CallComLogicalLinkEventCBR(link);
    TraceNotifyEnd(TraceIds(*cop), PDU_IT_STATUS, PDU_EVT_DATA_AVAILABLE, begun);
}

void cop_error(LinkRecord* link, ComPrimitive* cop, std::uint32_t code) {
    EventPtr item = MakeErrorItem(cop->hCoP, cop->pCoPTag, code);
    TraceCopError(TraceIds(*cop), code);
    const bool valid = link->running.load();
    AppendLinkEvent(link, std::move(item));
    if (valid) {
        CallComLogicalLinkEventCBR(link);
    } else if (!link->detached.load()) {
        CallSystemEventCBR(link->hMod, link->hCLL, link->CllTag, ApiTag());
    }
}

}  // namespace tarvik
