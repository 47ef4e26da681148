#pragma once

#include "api/com_primitives.h"
#include "api/link_record.h"

namespace tarvik {

// Executes a PDU_COPT_SENDRECV on the worker thread, from PDU_COPST_EXECUTING to its final state,
// which one on a raw link reaches at once, while its receive thread goes on delivering frames.
void ExecuteSendRecv(LinkRecord* link, ComPrimitive* cop);

// Delivers a response to the application: trace, event queue, callback. Takes `data` over, a
// tracked block of `length` bytes.
struct ResultDelivery {
    std::uint32_t unique_resp_identifier;
    std::uint32_t acceptance_id;
    std::uint8_t* data;
    std::uint32_t length;
    bool tx_done_timestamp;
    std::uint8_t rx_flag_byte2;
};
void DeliverResult(LinkRecord* link, ComPrimitive* cop, const ResultDelivery& delivery);

}  // namespace tarvik
