// Executing one ComPrimitive on a link and gathering everything it brings back.

#ifndef TOOLS_DPDU_LINKS_COM_PRIMITIVE_H
#define TOOLS_DPDU_LINKS_COM_PRIMITIVE_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "pdu/link_handles.h"
#include "pdu/session.h"
#include "text/hex.h"

namespace dpdu {

// A response must equal the pattern in the bits that the mask sets.
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
    bool is_29_bit = false;            // raw links: the identifier in front of the request
    bool ends_on_interruption = true;  // false for what must be done before the program ends
};

struct Answer {
    UNUM32 unique_id = 0;      // of the unique response table's entry
    UNUM32 acceptance_id = 0;  // position of the matching expected response, from 1
    UNUM32 timestamp_us = 0;
    std::optional<UNUM32> after_us;  // since execution began, where the library reports that
    Bytes data;
};

struct Exchange {
    std::vector<Answer> answers;
    std::string error;  // the last error that was reported; empty when there was none
};

// Starts the ComPrimitive and returns its handle. Throws Failure when the library refuses it.
UNUM32 StartComPrimitive(const Session& session, const LinkHandles& link,
                         const ComPrimitive& primitive);

// What a result item holds, which needs to have data.
Answer ReadAnswer(const PDU_EVENT_ITEM& item);

// True for the state with which a ComPrimitive ends.
bool IsFinalState(T_PDU_STATUS state);

// Executes the ComPrimitive and waits until the library has finished with it. Throws Failure when
// the library refuses it, when the limit passes, or when the user interrupts the program; it is
// cancelled then.
Exchange Execute(Session* session, const LinkHandles& link, const ComPrimitive& primitive,
                 std::chrono::milliseconds limit);

}  // namespace dpdu

#endif  // TOOLS_DPDU_LINKS_COM_PRIMITIVE_H
