#include "protocol/request.h"

#include "protocol/layout.h"

namespace brennix {

std::optional<Request> ReadRequest(ByteSpan packet) {
    if (packet.size() < creq::kBody) return std::nullopt;
    const std::uint8_t* at = packet.data();
    Request request;
    request.functional_id = LoadU32(at + creq::kFunctionalId);
    request.is_multi = LoadU32(at + creq::kPhysicalId) == kMultiRequestMark;
    request.timeout_ms = LoadU32(at + creq::kTimeout);
    request.id = LoadU32(at + creq::kRequestId);
    const std::size_t data_size = LoadU16(at + creq::kDataSize);
    std::size_t data_at = creq::kBody;
    if (request.is_multi) {
        const std::size_t count = LoadU32(at + creq::kResponderCount);
        if (count > (packet.size() - creq::kBody) / creq::kResponderSize) return std::nullopt;
        request.responders.reserve(count);
        for (std::size_t i = 0; i < count; ++i, data_at += creq::kResponderSize) {
            request.responders.push_back({LoadU32(at + data_at), LoadU32(at + data_at + 4)});
        }
    } else {
        request.physical_id = LoadU32(at + creq::kPhysicalId);
        request.response_id = LoadU32(at + creq::kResponseId);
    }
    if (data_size > packet.size() - data_at) return std::nullopt;
    request.data = packet.subspan(data_at, data_size);
    return request;
}

std::optional<std::uint32_t> Request::PositionOf(std::uint32_t wanted) const {
    for (std::size_t i = 0; i < responders.size(); ++i) {
        if (responders[i].response_id == wanted) return static_cast<std::uint32_t>(i);
    }
    return std::nullopt;
}

Bytes MakeBusy(std::uint32_t request_id, std::string_view reason) {
    Bytes payload;
    AppendU32(&payload, request_id);
    payload.insert(payload.end(), reason.begin(), reason.end());
    return MakePacket(type::kBusy, payload);
}

Bytes MakeResponse(std::uint32_t request_id, std::uint32_t wait_time, ByteSpan data) {
    Bytes packet;
    packet.reserve(cres::kBody + data.size());
    AppendU32(&packet, type::kCres);
    AppendU32(&packet, static_cast<std::uint32_t>(cres::kBody + data.size()));
    AppendU32(&packet, wait_time);
    AppendU32(&packet, static_cast<std::uint32_t>(data.size()));
    AppendU32(&packet, request_id);
    AppendBytes(&packet, data);
    return packet;
}

Bytes MakeMultiResponse(std::uint32_t request_id,
                        const std::vector<std::pair<std::uint32_t, Bytes>>& answers) {
    Bytes payload;
    AppendU32(&payload, kMultiResponseMark);
    AppendU32(&payload, static_cast<std::uint32_t>(answers.size()));
    AppendU32(&payload, request_id);
    for (const auto& [index, bytes] : answers) {
        AppendU32(&payload, index);
        AppendU32(&payload, static_cast<std::uint32_t>(bytes.size()));
        AppendBytes(&payload, bytes);
        const std::size_t used = cres::kEntryHead + bytes.size();
        payload.insert(payload.end(), Padded(used) - used, 0);
    }
    return MakePacket(type::kCres, payload);
}

}  // namespace brennix
