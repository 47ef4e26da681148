// Executing one ComPrimitive on a link and gathering everything it brings back.

#ifndef TOOLS_DPDU_COM_PRIMITIVE_H
#define TOOLS_DPDU_COM_PRIMITIVE_H

#include <chrono>
#include <string>
#include <vector>

#include "com_params.h"
#include "hex.h"

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
    bool ends_on_interruption = true;  // false for what must be done before the program ends
};

struct Answer {
    UNUM32 unique_id = 0;      // of the unique response table's entry
    UNUM32 acceptance_id = 0;  // position of the matching expected response, from 1
    UNUM32 timestamp_us = 0;
    Bytes data;
};

struct Exchange {
    std::vector<Answer> answers;
    std::string error;  // the last error that was reported; empty when there was none
};

// Executes the ComPrimitive and waits until the library has finished with it. Throws Failure when
// the library refuses it, when the limit passes, or when the user interrupts the program; it is
// cancelled then.
Exchange Execute(Session* session, const LinkHandles& link, const ComPrimitive& primitive,
                 std::chrono::milliseconds limit);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COM_PRIMITIVE_H
