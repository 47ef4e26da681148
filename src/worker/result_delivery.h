#pragma once

#include <cstdint>

#include "objects/com_primitive.h"
#include "objects/link_record.h"

namespace tarvik {

struct ResultDelivery {
    std::uint32_t unique_resp_identifier;
    std::uint32_t acceptance_id;
    std::uint8_t* data;  // a tracked block of `length` bytes, taken over
    std::uint32_t length;
    bool tx_done_timestamp;
    std::uint8_t rx_flag_byte2;
};

// Delivers a response to the application: trace, event queue, callback.
void DeliverResult(LinkRecord* link, ComPrimitive* cop, const ResultDelivery& delivery);

}  // namespace tarvik
