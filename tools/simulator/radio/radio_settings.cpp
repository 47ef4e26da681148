#include "radio/radio_settings.h"

#include "vehicle_file/json_reader.h"

namespace brennix {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxName = 29;  // of an advertisement's 31 bytes
constexpr std::uint32_t kSmallestMtu = 23;
constexpr std::uint32_t kLargestMtu = 517;

std::optional<Bytes> ReadAdvertisedName(const JsonObject& object) {
    if (object.Find("name")->is_null()) return std::nullopt;
    const std::string text = object.Text("name", kMaxName).value_or("");
    return Bytes(text.begin(), text.end());
}

LinkStatus ReadStatus(const JsonObject& object, const char* key, LinkStatus otherwise) {
    const auto number = object.Number(key, 0, 3);
    return number ? static_cast<LinkStatus>(*number) : otherwise;
}

std::int32_t ReadRssi(const JsonObject& object, std::int32_t otherwise) {
    const Json* value = object.Find("rssi");
    if (value == nullptr) return otherwise;
    if (!value->is_number_integer() || *value < -127 || *value > 20) {
        ThrowExpected(object.PathOf("rssi"), "-127 to 20 dBm", *value);
    }
    return value->get<std::int32_t>();
}

}  // namespace

void ChangeRadioSettings(const std::string& text, RadioSettings* settings) {
    const Json json = ParseJson(text, "radio");
    const JsonObject object(json, "radio",
                            {"name", "name_in_response", "rssi", "interval_ms", "advertise_count",
                             "advertises_connected", "refuse", "refuse_count", "connect_ms", "mtu",
                             "service", "characteristic", "services_status",
                             "characteristics_status", "subscribe_status", "write_status"});
    RadioSettings changed = *settings;
    const auto flag = [&](const char* key, bool* value) {
        *value = object.Flag(key).value_or(*value);
    };
    const auto number = [&](const char* key, std::uint32_t min, std::uint32_t max,
                            std::uint32_t* value) {
        *value = object.Number(key, min, max).value_or(*value);
    };
    const auto status = [&](const char* key, LinkStatus* value) {
        *value = ReadStatus(object, key, *value);
    };
    if (object.Find("name") != nullptr) changed.name = ReadAdvertisedName(object);
    flag("name_in_response", &changed.name_in_response);
    changed.rssi = ReadRssi(object, changed.rssi);
    number("interval_ms", 1, kMaxMs, &changed.interval_ms);
    number("advertise_count", 0, UINT32_MAX, &changed.advertise_count);
    flag("advertises_connected", &changed.advertises_connected);
    changed.refuse = object.Text("refuse", 100).value_or(changed.refuse);
    number("refuse_count", 0, UINT32_MAX, &changed.refuse_count);
    number("connect_ms", 0, kMaxMs, &changed.connect_ms);
    number("mtu", kSmallestMtu, kLargestMtu, &changed.mtu);
    flag("service", &changed.has_service);
    flag("characteristic", &changed.has_characteristic);
    status("services_status", &changed.services_status);
    status("characteristics_status", &changed.characteristics_status);
    status("subscribe_status", &changed.subscribe_status);
    status("write_status", &changed.write_status);
    *settings = changed;
}

}  // namespace brennix
