#include "protocol/describe.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "protocol/request.h"

namespace brennix {

using OrderedJson = nlohmann::ordered_json;

std::string CanIdText(std::uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "%03" PRIX32, id);
    return text;
}

static std::string Text(ByteSpan field) {
    const auto end = std::find(field.begin(), field.end(), 0);
    return {field.begin(), end};
}

static OrderedJson DescribeRequest(ByteSpan packet) {
    const std::optional<Request> request = ReadRequest(packet);
    if (!request) return OrderedJson::object();
    OrderedJson json;
    json["request_id"] = request->id;
    json["form"] = request->is_multi ? "multi" : "single";
    json["functional"] = CanIdText(request->functional_id);
    if (request->is_multi) {
        OrderedJson entries = OrderedJson::array();
        for (const Responder& entry : request->responders) {
            entries.push_back({{"request", CanIdText(entry.request_id)},
                               {"response", CanIdText(entry.response_id)}});
        }
        json["entries"] = std::move(entries);
    } else {
        json["physical"] = CanIdText(request->physical_id);
        json["response"] = CanIdText(request->response_id);
    }
    json["timeout_ms"] = request->timeout_ms;
    json["data"] = ToHex(request->data);
    return json;
}

static OrderedJson DescribeMultiResponse(ByteSpan packet) {
    OrderedJson entries = OrderedJson::array();
    const std::uint32_t count = LoadU32(packet.data() + 12);
    std::size_t at = 20;
    for (std::uint32_t i = 0; i < count && packet.size() - at >= 8; ++i) {
        const std::size_t length = LoadU32(packet.data() + at + 4);
        if (length > packet.size() - at - 8) break;
        entries.push_back(
            {{"id", LoadU32(packet.data() + at)}, {"data", ToHex(packet.subspan(at + 8, length))}});
        at = std::min(packet.size(), at + (8 + length + 7) / 8 * 8);
    }
    return entries;
}

static OrderedJson DescribeResponse(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < 20) return json;
    const std::uint32_t wait_time = LoadU32(packet.data() + 8);
    json["request_id"] = LoadU32(packet.data() + 16);
    if (wait_time == kMultiResponseMark) {
        json["form"] = "multi";
        json["entries"] = DescribeMultiResponse(packet);
        return json;
    }
    json["form"] = "single";
    if (wait_time == kNoAnswerInTime) {
        json["wait_time"] = "no answer";
    } else {
        json["wait_time"] = wait_time;
    }
    json["data"] = ToHex(packet.subspan(20));
    return json;
}

static OrderedJson DescribeLogin(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < 128) return json;
    json["mac"] = ToHex(packet.subspan(12, 6));
    json["model"] = LoadU32(packet.data() + 20);
    json["firmware"] = Text(packet.subspan(32, 32));
    json["name"] = Text(packet.subspan(64, 32));
    json["build_time"] = Text(packet.subspan(96, 16));
    json["build_date"] = Text(packet.subspan(112, 16));
    return json;
}

static OrderedJson DescribeRawFrame(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < 24) return json;
    const std::size_t count = LoadU16(packet.data() + 12);
    json["id"] = CanIdText(LoadU32(packet.data() + 8));
    json["count"] = count;
    json["flags"] = LoadU16(packet.data() + 14);
    json["data"] = ToHex(packet.subspan(16, std::min<std::size_t>(count, 8)));
    return json;
}

static OrderedJson DescribeTesterPresent(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < 16) return json;
    json["period_ms"] = LoadU32(packet.data() + 8);
    json["value"] = LoadU32(packet.data() + 12);
    json["message"] = ToHex(packet.subspan(16));
    return json;
}

static OrderedJson DescribeFragment(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < 16) return json;
    json["index"] = LoadU16(packet.data() + 8);
    json["count"] = LoadU16(packet.data() + 10);
    json["total_length"] = LoadU32(packet.data() + 12);
    return json;
}

static OrderedJson DescribeBusy(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < 12) return json;
    json["request_id"] = LoadU32(packet.data() + 8);
    json["reason"] = Text(packet.subspan(12));
    return json;
}

OrderedJson DescribePacket(ByteSpan packet) {
    switch (PacketType(packet)) {
        case type::kCreq:
            return DescribeRequest(packet);
        case type::kCres:
            return DescribeResponse(packet);
        case type::kLogn:
            return DescribeLogin(packet);
        case type::kRawc:
            return DescribeRawFrame(packet);
        case type::kTspr:
            return DescribeTesterPresent(packet);
        case type::kFrag:
            return DescribeFragment(packet);
        case type::kBusy:
            return DescribeBusy(packet);
        case type::kLog:
        case type::kTele:
            return {{"text", Text(PacketPayload(packet))}};
        default:
            return OrderedJson::object();
    }
}

}  // namespace brennix
