// CREQ: a request to put on the bus; CRES: what came back.

#pragma once

#include <optional>
#include <utility>

#include "protocol/wire.h"

namespace brennix {

constexpr std::uint32_t kNoAnswerInTime = 0xFFFFFFFF;     // wait time of a CRES
constexpr std::uint32_t kMultiResponseMark = 0xFFFFFFFD;  // wait time of a CRES in multi form
constexpr std::uint32_t kMultiRequestMark = 0xFFFFEEEE;   // physical CAN id of a CREQ

struct Responder {
    std::uint32_t request_id;
    std::uint32_t response_id;
};

struct Request {
    bool is_multi = false;
    std::uint32_t functional_id = 0;
    std::uint32_t physical_id = 0;  // single form only
    std::uint32_t response_id = 0;  // single form only
    std::uint32_t timeout_ms = 0;
    std::uint32_t id = 0;
    std::vector<Responder> responders;  // multi form only
    ByteSpan data;                      // lives as long as the packet

    // Position among the responders of the control unit that answers with this id.
    std::optional<std::uint32_t> PositionOf(std::uint32_t response_id) const;
};

// Reads a well-formed CREQ; if it returns nothing, CheckPacket says what is wrong.
std::optional<Request> ReadRequest(ByteSpan packet);

Bytes MakeResponse(std::uint32_t request_id, std::uint32_t wait_time, ByteSpan data);

Bytes MakeBusy(std::uint32_t request_id, std::string_view reason);

// `answers`: the responder's index in the request, and its bytes.
Bytes MakeMultiResponse(std::uint32_t request_id,
                        const std::vector<std::pair<std::uint32_t, Bytes>>& answers);

}  // namespace brennix
