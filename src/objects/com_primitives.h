#pragma once

#include <cstdint>

#include "dpdu_types.h"
#include "objects/link_record.h"

// Starting and cancelling ComPrimitives of a link. `function` is the tag of the log lines.
namespace tarvik {

struct StartRequest {
    std::uint32_t CoPType;
    std::uint32_t CoPDataSize;
    const UNUM8* pCoPData;
    const PDU_COP_CTRL_DATA* pCopCtrlData;  // null is legal
    void* pCoPTag;
};

// Copies the request, registers it under a new handle and queues it for the link's worker.
T_PDU_ERROR StartOnLink(const char* function, LinkRecord* link, const StartRequest& request,
                        UNUM32* phCoP);

struct CancelOutcome {
    bool found = false;
    std::uint32_t last_state = 0;
    bool abort_set = false;
};

// Asks a ComPrimitive that is not finished to stop. `*outcome` is for the trace.
T_PDU_ERROR CancelOnLink(const char* function, LinkRecord* link, std::uint32_t hCoP,
                         CancelOutcome* outcome);

}  // namespace tarvik
