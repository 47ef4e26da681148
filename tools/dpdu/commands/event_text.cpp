#include "commands/event_text.h"

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "links/com_primitive.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

std::string InfoText(T_PDU_INFO code) {
    switch (code) {
        case PDU_INFO_MODULE_LIST_CHG:
            return "the list of modules has changed (PDU_INFO_MODULE_LIST_CHG)";
        case PDU_INFO_RSC_LOCK_CHG:
            return "the locks have changed (PDU_INFO_RSC_LOCK_CHG)";
        case PDU_INFO_PHYS_COMPARAM_CHG:
            return "physical ComParams have changed (PDU_INFO_PHYS_COMPARAM_CHG)";
        default:
            return "information 0x" + HexNumber(code, 4);
    }
}

void ReadResult(const PDU_EVENT_ITEM& item, const Bytes& request, Event* event) {
    const Answer answer = ReadAnswer(item);
    event->kind = "result";
    event->data = HexText(answer.data);
    event->decoded = Decode(request, answer.data);
    event->text = "answer " + HexText(answer.data, " ") + "  " + event->decoded.Text();
}

int Milliseconds(WallTime time) {
    const auto since =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    return static_cast<int>(since.count() % 1000);
}

std::string ClockText(const std::tm& fields, WallTime time) {
    char text[64];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", fields.tm_hour, fields.tm_min,
                  fields.tm_sec, Milliseconds(time));
    return text;
}

std::string DateText(const std::tm& fields) {
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", fields.tm_year + 1900, fields.tm_mon + 1,
                  fields.tm_mday);
    return text;
}

// `convert` returns a static record; only the main thread calls this.
std::tm FieldsOf(WallTime time, std::tm* (*convert)(const std::time_t*)) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const std::tm* fields = convert(&seconds);
    return fields ? *fields : std::tm{};
}

}  // namespace

Event ReadEvent(const PDU_EVENT_ITEM& item, const std::string& source, const Bytes& request) {
    Event event;
    event.source = item.hCop == PDU_HANDLE_UNDEF ? source : "request " + std::to_string(item.hCop);
    event.timestamp_us = item.Timestamp;
    event.has_timestamp = true;
    if (item.pData && item.ItemType == PDU_IT_RESULT) {
        ReadResult(item, request, &event);
    } else if (item.pData && item.ItemType == PDU_IT_STATUS) {
        event.kind = "status";
        event.text = StateText(*static_cast<const PDU_STATUS_DATA*>(item.pData));
    } else if (item.pData && item.ItemType == PDU_IT_ERROR) {
        event.kind = "error";
        event.text =
            "error: " + ErrorEventText(static_cast<const PDU_ERROR_DATA*>(item.pData)->ErrorCodeId);
    } else if (item.pData && item.ItemType == PDU_IT_INFO) {
        event.kind = "info";
        event.text = InfoText(static_cast<const PDU_INFO_DATA*>(item.pData)->InfoCode);
    } else {
        event.kind = "unknown";
        event.text = "an item of type 0x" + HexNumber(item.ItemType, 4);
    }
    return event;
}

std::string EventLine(const Event& event, WallTime time) {
    constexpr std::size_t kSourceWidth = 12;
    std::string source = event.source;
    if (source.size() < kSourceWidth) source.append(kSourceWidth - source.size(), ' ');
    return ClockText(FieldsOf(time, std::localtime), time) + "  " + source + event.text;
}

Json EventJson(const Event& event, WallTime time) {
    const std::tm utc = FieldsOf(time, std::gmtime);
    Json json = {{"time", DateText(utc) + "T" + ClockText(utc, time) + "Z"},
                 {"source", event.source},
                 {"kind", event.kind},
                 {"text", event.text}};
    if (!event.data.empty()) {
        json["data"] = event.data;
        json["decoded"] = DecodedJson(event.decoded);
    }
    if (event.has_timestamp) json["timestampUs"] = event.timestamp_us;
    return json;
}

}  // namespace dpdu
