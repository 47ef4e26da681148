#pragma once

#include <cstdint>

#include "dpdu_types.h"
#include "objects/link_record.h"

namespace tarvik {

struct LinkRequest {
    std::uint32_t hMod;
    const PDU_RSC_DATA* resource;  // may be null, as may the flag
    void* tag;
    const PDU_FLAG_DATA* flag;
};

// Starts the threads of a link that cannot be found yet. False: the system refused.
using StartLinkThreads = bool (*)(const char* function, LinkRecord* link);

// Makes a link, starts its threads and files it in its module's link array. `function` is the tag
// of the log lines. On success `*hCLL` is its handle.
T_PDU_ERROR CreateLink(const char* function, const LinkRequest& request, StartLinkThreads start,
                       std::uint32_t* hCLL);

}  // namespace tarvik
