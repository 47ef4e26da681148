#include "protocol/describe.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "protocol/layout.h"
#include "protocol/raw_frame.h"
#include "protocol/request.h"

namespace brennix {

namespace {

using OrderedJson = nlohmann::ordered_json;

std::string Text(ByteSpan field) {
    const auto end = std::find(field.begin(), field.end(), 0);
    return {field.begin(), end};
}

OrderedJson DescribeRequest(ByteSpan packet) {
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

OrderedJson DescribeMultiResponse(ByteSpan packet) {
    OrderedJson entries = OrderedJson::array();
    const std::uint32_t count = LoadU32(packet.data() + cres::kEntryCount);
    std::size_t at = cres::kBody;
    for (std::uint32_t i = 0; i < count && packet.size() - at >= cres::kEntryHead; ++i) {
        const std::size_t length = LoadU32(packet.data() + at + cres::kEntryLength);
        if (length > packet.size() - at - cres::kEntryHead) break;
        entries.push_back({{"id", LoadU32(packet.data() + at + cres::kEntryId)},
                           {"data", ToHex(packet.subspan(at + cres::kEntryHead, length))}});
        at = std::min(packet.size(), at + Padded(cres::kEntryHead + length));
    }
    return entries;
}

OrderedJson DescribeResponse(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < cres::kBody) return json;
    const std::uint32_t wait_time = LoadU32(packet.data() + cres::kWaitTime);
    json["request_id"] = LoadU32(packet.data() + cres::kRequestId);
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
    json["data"] = ToHex(packet.subspan(cres::kBody));
    return json;
}

OrderedJson DescribeLogin(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < logn::kTextsEnd) return json;
    json["mac"] = ToHex(packet.subspan(logn::kMac, kMacSize));
    json["model"] = LoadU32(packet.data() + logn::kModel);
    json["firmware"] = Text(packet.subspan(logn::kFirmware, logn::kFirmwareWidth));
    json["name"] = Text(packet.subspan(logn::kName, logn::kNameWidth));
    json["build_time"] = Text(packet.subspan(logn::kBuildTime, logn::kBuildWidth));
    json["build_date"] = Text(packet.subspan(logn::kBuildDate, logn::kBuildWidth));
    return json;
}

OrderedJson DescribeRawFrame(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < rawc::kSize) return json;
    const std::size_t count = LoadU16(packet.data() + rawc::kCount);
    json["id"] = CanIdText(LoadU32(packet.data() + rawc::kId));
    json["count"] = count;
    json["flags"] = LoadU16(packet.data() + rawc::kFlags);
    json["data"] = ToHex(packet.subspan(rawc::kData, std::min(count, kMaxFrameBytes)));
    return json;
}

OrderedJson DescribeTesterPresent(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < tspr::kMessage) return json;
    json["period_ms"] = LoadU32(packet.data() + tspr::kPeriod);
    json["value"] = LoadU32(packet.data() + tspr::kMark);
    json["message"] = ToHex(packet.subspan(tspr::kMessage));
    return json;
}

OrderedJson DescribeFragment(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < frag::kSlice) return json;
    json["index"] = LoadU16(packet.data() + frag::kIndex);
    json["count"] = LoadU16(packet.data() + frag::kCount);
    json["total_length"] = LoadU32(packet.data() + frag::kTotalLength);
    return json;
}

OrderedJson DescribeBusy(ByteSpan packet) {
    OrderedJson json = OrderedJson::object();
    if (packet.size() < busy::kReason) return json;
    json["request_id"] = LoadU32(packet.data() + busy::kRequestId);
    json["reason"] = Text(packet.subspan(busy::kReason));
    return json;
}

}  // namespace

std::string CanIdText(std::uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "%03" PRIX32, id);
    return text;
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
