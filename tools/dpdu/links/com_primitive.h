// Executes one ComPrimitive on a link and collects its results.

#ifndef TOOLS_DPDU_LINKS_COM_PRIMITIVE_H
#define TOOLS_DPDU_LINKS_COM_PRIMITIVE_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "console/failure.h"
#include "pdu/link_handles.h"
#include "pdu/session.h"
#include "text/hex.h"

namespace dpdu {

// A response must match the pattern in all bits set in the mask.
struct ExpectedResponse {
    bool is_negative = false;
    Bytes mask;  // as long as the pattern; both empty: any response
    Bytes pattern;
};

struct ComPrimitive {
    T_PDU_COPT type = PDU_COPT_SENDRECV;
    Bytes request;
    std::vector<ExpectedResponse> expected;
    SNUM32 send_cycles = 1;
    SNUM32 receive_cycles = 1;
    bool is_29_bit = false;            // raw links: the identifier at the start of the request
    bool ends_on_interruption = true;  // false: also finish it after an interruption
};

struct Answer {
    UNUM32 unique_id = 0;      // of the entry in the unique response table
    UNUM32 acceptance_id = 0;  // position of the matching expected response, from 1
    UNUM32 timestamp_us = 0;
    std::optional<UNUM32> after_us;  // since execution began; unset if not reported
    Bytes data;
};

struct Exchange {
    std::vector<Answer> answers;
    std::string error;                    // the last reported error; empty: none
    ExitCode code = ExitCode::kNoAnswer;  // what that error or the lack of answers amounts to
};

// Starts the ComPrimitive and returns its handle. Throws Failure if the library refuses it.
UNUM32 StartComPrimitive(const Session& session, const LinkHandles& link,
                         const ComPrimitive& primitive);

// Reads a result item, which must have data.
Answer ReadAnswer(const PDU_EVENT_ITEM& item);

// True if the state is final: finished or cancelled.
bool IsFinalState(T_PDU_STATUS state);

// Executes the ComPrimitive and waits until it is finished. Throws Failure if the library refuses
// it, the limit passes or the user interrupts the program; in the last two cases it is cancelled.
Exchange Execute(Session* session, const LinkHandles& link, const ComPrimitive& primitive,
                 std::chrono::milliseconds limit);

}  // namespace dpdu

#endif  // TOOLS_DPDU_LINKS_COM_PRIMITIVE_H
