#include "vehicle_file/vehicle_file.h"

#include <fstream>
#include <set>
#include <sstream>

#include "vehicle_file/json_reader.h"
#include "vehicle_file/raw_file.h"
#include "vehicle_file/timeline_file.h"
#include "vehicle_file/unit_series.h"

namespace brennix {

namespace {

using Json = nlohmann::json;

constexpr std::uint32_t kMaxForeignEntries = 1000;
constexpr std::uint32_t kMaxCount = 1'000'000;
constexpr std::size_t kMaxAnswer = 65535;

Behaviour ReadBehaviour(const Json& value, const std::string& path) {
    const JsonObject object(
        value, path,
        {"delay_ms", "silent", "negative", "pending", "pending_interval_ms", "repeat", "busy",
         "busy_interval_ms", "busy_reason", "lost", "wrong_id", "stray", "duplicate", "fragment",
         "garbage", "seal", "foreign_entries", "for_requests"});
    Behaviour result;
    result.delay_ms = object.Number("delay_ms", 0, kMaxMs);
    result.silent = object.Flag("silent");
    if (const auto code = object.HexNumber("negative", 0xFF)) {
        result.negative = static_cast<std::uint8_t>(*code);
    }
    result.pending = object.Number("pending", 0, kMaxCount);
    result.pending_interval_ms = object.Number("pending_interval_ms", 0, kMaxMs);
    result.repeat = object.Number("repeat", 0, kMaxCount);
    result.busy = object.Number("busy", 0, kMaxCount);
    result.busy_interval_ms = object.Number("busy_interval_ms", 0, kMaxMs);
    result.busy_reason = object.Text("busy_reason", 4000);
    result.lost = object.Flag("lost");
    result.wrong_id = object.Flag("wrong_id");
    result.stray = object.Number("stray", 0, kMaxCount);
    result.duplicate = object.Number("duplicate", 0, kMaxCount);
    result.fragment = object.Number("fragment", kFragmentHeaderSize + 1, kMaxPacketSize);
    result.garbage = object.Number("garbage", 0, kMaxCount);
    result.seal = object.Flag("seal");
    result.foreign_entries = object.Number("foreign_entries", 0, kMaxForeignEntries);
    result.for_requests = object.Number("for_requests", 1, kMaxCount);
    return result;
}

Behaviour ReadOptionalBehaviour(const JsonObject& object) {
    const Json* found = object.Find("behaviour");
    return found == nullptr ? Behaviour{} : ReadBehaviour(*found, object.PathOf("behaviour"));
}

std::array<std::uint8_t, 6> ReadMac(const Json& value, const std::string& path) {
    std::string text = value.is_string() ? value.get<std::string>() : "";
    for (char& c : text) {
        if (c == ':') c = ' ';
    }
    const std::optional<Bytes> bytes = ParseHex(text);
    if (!bytes || bytes->size() != 6) {
        ThrowExpected(path, "a MAC address such as \"02:00:00:00:00:01\"", value);
    }
    std::array<std::uint8_t, 6> mac{};
    std::copy(bytes->begin(), bytes->end(), mac.begin());
    return mac;
}

void ReadIgnore(const Json& value, const std::string& path, DongleSetup* setup) {
    if (!value.is_object()) ThrowExpected(path, "an object such as {\"SYNC\": 2}", value);
    setup->ignore.clear();
    for (const auto& item : value.items()) {
        const std::string item_path = path + "." + item.key();
        const std::optional<std::uint32_t> type = ParseTypeName(item.key());
        if (!type) throw JsonError(item_path + ": no packet type, expected four letters");
        if (!item.value().is_number_unsigned() || item.value().get<std::uint64_t>() > kMaxCount) {
            ThrowExpected(item_path, "how many packets to ignore", item.value());
        }
        const auto count = item.value().get<std::uint32_t>();
        if (count != 0) setup->ignore[*type] = count;
    }
}

void ReadDongle(const Json& value, const std::string& path, DongleSetup* setup) {
    const JsonObject object(value, path,
                            {"model", "mac", "name", "firmware", "build_time", "build_date", "mute",
                             "noise_before_sync", "ignore", "busy_identify", "behaviour"});
    Identity& identity = setup->identity;
    identity.model = object.Number("model", 0, 0xFFFFFFFF).value_or(identity.model);
    if (const Json* mac = object.Find("mac")) identity.mac = ReadMac(*mac, object.PathOf("mac"));
    identity.name = object.Text("name", 32).value_or(identity.name);
    identity.firmware = object.Text("firmware", 32).value_or(identity.firmware);
    identity.build_time = object.Text("build_time", 16).value_or(identity.build_time);
    identity.build_date = object.Text("build_date", 16).value_or(identity.build_date);
    setup->mute = object.Flag("mute").value_or(setup->mute);
    if (const auto noise = object.Number("noise_before_sync", 0, kMaxCount)) {
        setup->noise_before_sync = *noise;
    }
    if (const Json* ignore = object.Find("ignore")) {
        ReadIgnore(*ignore, object.PathOf("ignore"), setup);
    }
    setup->busy_identify =
        object.Number("busy_identify", 0, kMaxCount).value_or(setup->busy_identify);
    if (object.Find("behaviour") != nullptr) setup->behaviour = ReadOptionalBehaviour(object);
}

// A text is its own bytes; an object gives the bytes and more.
DataItem ReadDataItem(const Json& value, const std::string& path) {
    DataItem item;
    if (value.is_string()) {
        const std::string text = value.get<std::string>();
        item.value.assign(text.begin(), text.end());
        return item;
    }
    if (!value.is_object())
        ThrowExpected(path, "text or an object with \"text\" or \"hex\"", value);
    const JsonObject object(value, path, {"text", "hex", "sessions", "writable"});
    const std::optional<std::string> text = object.Text("text", kMaxAnswer);
    const std::optional<Bytes> bytes = object.HexBytes("hex");
    if (text.has_value() == bytes.has_value()) {
        throw JsonError(path + ": expected either \"text\" or \"hex\"");
    }
    item.value = bytes ? *bytes : Bytes(text->begin(), text->end());
    object.ForEach("sessions", [&](const Json& session, const std::string& at) {
        item.sessions.push_back(static_cast<std::uint8_t>(ReadHexNumber(session, at, 0x7F)));
    });
    item.writable = object.Flag("writable").value_or(false);
    return item;
}

std::uint32_t ReadKey(const std::string& key, const std::string& path, std::uint32_t max) {
    return ReadHexNumber(Json(key), path, max);
}

void ReadData(const JsonObject& object, ControlUnitSetup* unit) {
    const Json* data = object.Find("data");
    if (data == nullptr) return;
    const std::string path = object.PathOf("data");
    if (!data->is_object()) ThrowExpected(path, "an object such as {\"F190\": \"…\"}", *data);
    for (const auto& item : data->items()) {
        const std::string item_path = path + "." + item.key();
        const auto id = static_cast<std::uint16_t>(ReadKey(item.key(), item_path, 0xFFFF));
        unit->data[id] = ReadDataItem(item.value(), item_path);
    }
}

void ReadSessions(const JsonObject& object, ControlUnitSetup* unit) {
    const Json* sessions = object.Find("sessions");
    if (sessions == nullptr) return;
    const std::string path = object.PathOf("sessions");
    if (!sessions->is_object()) {
        ThrowExpected(path, "an object such as {\"01\": {}, \"03\": {\"p2_ms\": 50}}", *sessions);
    }
    unit->sessions.clear();
    for (const auto& item : sessions->items()) {
        const std::string item_path = path + "." + item.key();
        const JsonObject session(item.value(), item_path, {"p2_ms", "p2_star_ms"});
        Session& entry =
            unit->sessions[static_cast<std::uint8_t>(ReadKey(item.key(), item_path, 0x7F))];
        entry.p2_ms =
            static_cast<std::uint16_t>(session.Number("p2_ms", 0, 65535).value_or(entry.p2_ms));
        entry.p2_star_ms = static_cast<std::uint16_t>(
            session.Number("p2_star_ms", 0, 65535).value_or(entry.p2_star_ms));
    }
}

// "P0301", "P0301-16" or six hex digits. The letter gives the two upper bits.
std::uint32_t ReadTroubleCodeText(const Json& value, const std::string& path) {
    static const char* const kExpected =
        "a trouble code such as \"P0301\", \"P0301-16\" or \"030116\"";
    if (!value.is_string()) ThrowExpected(path, kExpected, value);
    std::string text = value.get<std::string>();
    std::erase(text, '-');
    static constexpr std::string_view kSystems = "PCBU";
    const std::size_t system = text.empty() ? std::string_view::npos : kSystems.find(text[0]);
    // C and B are hex digits too; six digits are always the plain form.
    const bool has_letter = system != std::string_view::npos && text.size() != 6;
    if (has_letter) text.erase(0, 1);
    if (has_letter && text.size() == 4) text += "00";
    const std::optional<Bytes> bytes = ParseHex(text);
    if (!bytes || bytes->size() != 3 || (has_letter && (*bytes)[0] >= 0x40)) {
        ThrowExpected(path, kExpected, value);
    }
    const auto code =
        static_cast<std::uint32_t>((*bytes)[0] << 16 | (*bytes)[1] << 8 | (*bytes)[2]);
    return has_letter ? code | static_cast<std::uint32_t>(system << 22) : code;
}

TroubleCode ReadTroubleCode(const Json& value, const std::string& path) {
    TroubleCode trouble;
    if (!value.is_object()) {
        trouble.code = ReadTroubleCodeText(value, path);
        return trouble;
    }
    const JsonObject object(value, path, {"code", "status"});
    trouble.code =
        ReadTroubleCodeText(object.Require("code", "a trouble code"), object.PathOf("code"));
    trouble.status =
        static_cast<std::uint8_t>(object.HexNumber("status", 0xFF).value_or(trouble.status));
    return trouble;
}

AnswerRow ReadRow(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"request", "response", "behaviour"});
    AnswerRow row;
    row.request = ReadPattern(object.Require("request", "request bytes"), object.PathOf("request"));
    row.response = object.HexBytes("response").value_or(Bytes{});
    if (row.response.size() > kMaxAnswer) {
        throw JsonError(object.PathOf("response") + ": longer than 65535 bytes");
    }
    row.behaviour = ReadOptionalBehaviour(object);
    return row;
}

ControlUnitSetup ReadControlUnit(const Json& value, const std::string& path) {
    const JsonObject object(
        value, path,
        {"name", "request", "response", "functional", "sessions", "session_timeout_ms", "data",
         "trouble_codes", "answers", "behaviour", "permanent", "min_battery_mV"});
    ControlUnitSetup unit;
    object.Require("name", "the control unit's name");
    unit.name = ReadName(object);
    object.Require("request", "the CAN id of its requests, as hex text");
    unit.request_id = *object.HexNumber("request", kMaxCanId);
    object.Require("response", "the CAN id of its responses, as hex text");
    unit.response_id = *object.HexNumber("response", kMaxCanId);
    object.ForEach("functional", [&](const Json& id, const std::string& at) {
        unit.functional_ids.push_back(ReadHexNumber(id, at, kMaxCanId));
    });
    ReadSessions(object, &unit);
    unit.session_timeout_ms =
        object.Number("session_timeout_ms", 1, kMaxMs).value_or(unit.session_timeout_ms);
    ReadData(object, &unit);
    object.ForEach("trouble_codes", [&](const Json& code, const std::string& at) {
        unit.trouble_codes.push_back(ReadTroubleCode(code, at));
    });
    object.ForEach("answers", [&](const Json& row, const std::string& at) {
        unit.rows.push_back(ReadRow(row, at));
    });
    unit.permanent = object.Flag("permanent").value_or(false);
    unit.min_battery_mv =
        object.Number("min_battery_mV", 0, kMaxCount).value_or(unit.min_battery_mv);
    unit.behaviour = ReadOptionalBehaviour(object);
    return unit;
}

DongleSetup ReadDocument(const Json& document) {
    const JsonObject object(
        document, "",
        {"description", "dongle", "control_units", "raw", "telemetry", "device_log", "power"});
    object.Text("description", 4096);
    DongleSetup setup;
    if (const Json* dongle = object.Find("dongle")) ReadDongle(*dongle, "dongle", &setup);
    if (const Json* raw = object.Find("raw")) setup.raw = ReadRawSetup(*raw, "raw");
    setup.timeline = ReadTimeline(object);
    std::set<std::string> names;
    object.ForEach("control_units", [&](const Json& entry, const std::string& at) {
        for (const auto& [unit, path] : ExpandUnitSeries(entry, at)) {
            setup.control_units.push_back(ReadControlUnit(unit, path));
            const std::string& name = setup.control_units.back().name;
            if (names.insert(name).second) continue;
            throw JsonError(path + ".name: \"" + name + "\" is the name of another control unit");
        }
    });
    return setup;
}

}  // namespace

DongleSetup ReadVehicle(const std::string& text, const std::string& name) {
    const Json document = ParseJson(text, name);
    try {
        return ReadDocument(document);
    } catch (const JsonError& error) {
        throw JsonError(name + ": " + error.what());
    }
}

DongleSetup LoadVehicleFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf())) throw JsonError(path + ": cannot be read");
    return ReadVehicle(text.str(), path);
}

Behaviour ReadBehaviourText(const std::string& text) {
    return ReadBehaviour(ParseJson(text, "behaviour"), "behaviour");
}

void ChangeDongle(const std::string& text, DongleSetup* setup) {
    DongleSetup changed = *setup;
    ReadDongle(ParseJson(text, "dongle"), "dongle", &changed);
    *setup = std::move(changed);
}

}  // namespace brennix
