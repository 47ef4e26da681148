#include "worker/result_delivery.h"

#include <utility>

#include "objects/event_callbacks.h"
#include "objects/items.h"
#include "support/cop_trace.h"
#include "support/memory.h"

namespace tarvik {

void DeliverResult(LinkRecord* link, ComPrimitive* cop, const ResultDelivery& delivery) {
    const TraceCop ids = TraceIds(*cop);
    EventPtr item = MakeResultItem({cop->hCoP, cop->pCoPTag, delivery.unique_resp_identifier,
                                    delivery.acceptance_id, delivery.data, delivery.length,
                                    delivery.tx_done_timestamp, delivery.rx_flag_byte2});
    if (item == nullptr) {
        FreeMem(delivery.data);
        return;
    }
    TraceCopRx(ids, delivery.unique_resp_identifier, delivery.acceptance_id, delivery.data,
               delivery.length);
    AppendLinkEvent(link, std::move(item));
    const std::uint64_t begun = TraceNotifyBegin(ids, PDU_IT_RESULT, PDU_EVT_DATA_AVAILABLE);
    CallComLogicalLinkEventCBR(link);
    TraceNotifyEnd(ids, PDU_IT_RESULT, PDU_EVT_DATA_AVAILABLE, begun);
}

}  // namespace tarvik
