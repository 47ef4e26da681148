#include "vehicle_file/timeline_file.h"

namespace brennix {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxText = 60'000;
constexpr std::uint32_t kMaxBatteryMv = 100'000;

std::string ReadTelemetryText(const Json& value, const std::string& path) {
    if (value.is_object()) return value.dump();
    if (value.is_string() && value.get_ref<const std::string&>().size() <= kMaxText) {
        return value.get<std::string>();
    }
    ThrowExpected(path, "an object, or text that is sent as it is", value);
}

std::uint32_t RequireTime(const JsonObject& object) {
    object.Require("at_ms", "milliseconds after the host's SYNC");
    return *object.Number("at_ms", 0, kMaxMs);
}

TimelineEvent ReadLogText(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"at_ms", "text"});
    TimelineEvent event;
    event.at_ms = RequireTime(object);
    object.Require("text", "the text, line feeds included");
    const std::string text = *object.Text("text", kMaxText);
    event.packet = MakePacket(type::kLog, Bytes(text.begin(), text.end()));
    return event;
}

TimelineEvent ReadPowerChange(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"at_ms", "battery_mV", "ignition"});
    TimelineEvent event;
    event.at_ms = RequireTime(object);
    event.battery_mv = object.Number("battery_mV", 0, kMaxBatteryMv);
    event.ignition = object.Flag("ignition");
    if (!event.ChangesPower()) {
        throw JsonError(path + ": expected \"battery_mV\", \"ignition\" or both");
    }
    return event;
}

TelemetrySetup ReadTelemetry(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"period_ms", "json"});
    TelemetrySetup setup;
    object.Require("period_ms", "the time from one report to the next, in milliseconds");
    setup.period_ms = *object.Number("period_ms", 0, kMaxMs);
    if (const Json* json = object.Find("json")) {
        setup.texts = ReadTelemetryTexts(*json, object.PathOf("json"));
    }
    return setup;
}

}  // namespace

std::vector<std::string> ReadTelemetryTexts(const Json& value, const std::string& path) {
    if (!value.is_array()) return {ReadTelemetryText(value, path)};
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < value.size(); ++i)
        texts.push_back(ReadTelemetryText(value[i], path + "[" + std::to_string(i) + "]"));
    return texts;
}

TimelineSetup ReadTimeline(const JsonObject& file) {
    TimelineSetup setup;
    if (const Json* telemetry = file.Find("telemetry")) {
        setup.telemetry = ReadTelemetry(*telemetry, "telemetry");
    }
    file.ForEach("device_log", [&](const Json& text, const std::string& at) {
        setup.events.push_back(ReadLogText(text, at));
    });
    file.ForEach("power", [&](const Json& change, const std::string& at) {
        setup.events.push_back(ReadPowerChange(change, at));
    });
    return setup;
}

}  // namespace brennix
