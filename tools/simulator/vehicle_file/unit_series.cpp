#include "vehicle_file/unit_series.h"

#include <map>

#include "protocol/describe.h"
#include "vehicle/raw_traffic.h"
#include "vehicle_file/json_reader.h"

namespace brennix {

namespace {

using Json = nlohmann::json;

constexpr std::uint32_t kMaxUnits = 2048;

// Keys that each control unit gets from the series.
constexpr std::initializer_list<const char*> kOwnKeys = {
    "count", "name", "request", "request_step", "response", "response_step", "except"};

// Moving its values throws nothing, which the JSON library does not state.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct Series {
    std::uint32_t count = 0;
    std::string name;
    std::uint32_t request = 0;
    std::uint32_t request_step = 1;
    std::uint32_t response = 0;
    std::uint32_t response_step = 1;
    Json common;                               // what they have in common
    std::map<std::uint32_t, Json> exceptions;  // keys of individual ones
};

void ReplaceAll(std::string* text, const std::string& mark, const std::string& value) {
    for (std::size_t at = 0; (at = text->find(mark, at)) != std::string::npos; at += value.size())
        text->replace(at, mark.size(), value);
}

void ReplaceNumber(Json* value, std::uint32_t number) {
    if (value->is_structured()) {
        for (Json& element : *value)
            ReplaceNumber(&element, number);
    } else if (value->is_string()) {
        auto& text = value->get_ref<std::string&>();
        ReplaceAll(&text, "{n}", std::to_string(number));
        const std::uint8_t low[] = {static_cast<std::uint8_t>(number & 0xFF)};
        ReplaceAll(&text, "{hex}", ToHex(low));
    }
}

void ReadExceptions(const JsonObject& object, Series* series) {
    object.ForEach("except", [&](const Json& value, const std::string& at) {
        const Json* number = value.is_object() && value.contains("unit") ? &value["unit"] : nullptr;
        if (number == nullptr || !number->is_number_unsigned() ||
            number->get<std::uint64_t>() >= series->count) {
            throw JsonError(at + ".unit: expected the number of one of the " +
                            std::to_string(series->count) + " control units, counted from 0");
        }
        Json keys = value;
        keys.erase("unit");
        series->exceptions[number->get<std::uint32_t>()].update(keys);
    });
}

std::uint32_t RequireLastId(const JsonObject& object, const char* key, std::uint32_t first,
                            std::uint32_t step, std::uint32_t count) {
    const std::uint64_t last = first + static_cast<std::uint64_t>(step) * (count - 1);
    if (last > kMaxCanId) {
        throw JsonError(object.PathOf(key) + ": the last control unit's is above 1fffffff");
    }
    return first;
}

Series ReadSeries(const Json& value, const std::string& path) {
    Series series;
    series.common = value;
    Json own = Json::object();
    for (const char* key : kOwnKeys) {
        if (value.contains(key)) own[key] = value[key];
        series.common.erase(key);
    }
    const JsonObject object(own, path, kOwnKeys);
    series.count = object.Number("count", 1, kMaxUnits).value_or(1);
    object.Require("name", "the control units' name, to which a number is appended");
    series.name = ReadName(object);
    object.Require("request", "the CAN id of the first one's requests, as hex text");
    object.Require("response", "the CAN id of the first one's responses, as hex text");
    series.request_step = object.HexNumber("request_step", kMaxCanId).value_or(1);
    series.response_step = object.HexNumber("response_step", kMaxCanId).value_or(1);
    series.request = RequireLastId(object, "request", *object.HexNumber("request", kMaxCanId),
                                   series.request_step, series.count);
    series.response = RequireLastId(object, "response", *object.HexNumber("response", kMaxCanId),
                                    series.response_step, series.count);
    ReadExceptions(object, &series);
    return series;
}

Json MakeUnit(const Series& series, std::uint32_t number) {
    Json unit = series.common;
    unit["name"] = series.name + std::to_string(number);
    unit["request"] = CanIdText(series.request + number * series.request_step);
    unit["response"] = CanIdText(series.response + number * series.response_step);
    if (const auto found = series.exceptions.find(number); found != series.exceptions.end()) {
        unit.update(found->second);
    }
    ReplaceNumber(&unit, number);
    return unit;
}

}  // namespace

std::vector<NamedEntry> ExpandUnitSeries(const Json& value, const std::string& path) {
    if (!value.is_object() || !value.contains("count")) return {{value, path}};
    const Series series = ReadSeries(value, path);
    std::vector<NamedEntry> units;
    for (std::uint32_t i = 0; i < series.count; ++i)
        units.push_back({MakeUnit(series, i), path + " unit " + std::to_string(i)});
    return units;
}

}  // namespace brennix
