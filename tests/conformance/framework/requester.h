#pragma once

// A link for large numbers of requests: the library's callback wakes the thread that waits for the
// answer.

#include <condition_variable>
#include <mutex>
#include <vector>

#include "conformance/framework/link.h"
#include "conformance/framework/params.h"

namespace conformance {

class Requester {
public:
    // To the control units of this table. Connected at once, with CP_P2Max as it is.
    Requester(UNUM32 hMod, UniqueTable& table);
    // To one control unit.
    Requester(UNUM32 hMod, UNUM32 request_id, UNUM32 response_id);
    // The library must have been destructed: until then it may call back.
    ~Requester() = default;

    Link& link() { return link_; }

    // Runs one request to its end; the result is not final if that does not come.
    Outcome Request(const std::vector<UNUM8>& data);

private:
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32, void* requester, void*);
    bool TakeEvents(Outcome* outcome);

    std::mutex lock_;
    std::condition_variable called_;
    bool was_called_ = false;
    ControlData control_;
    Link link_;
};

}  // namespace conformance
