#include "vehicle_file/json_reader.h"

#include <algorithm>
#include <charconv>

namespace brennix {

namespace {

bool IsControl(char letter) { return (letter >= '\0' && letter < ' ') || letter == '\x7F'; }

std::string OnOneLine(std::string text) {
    std::replace_if(text.begin(), text.end(), IsControl, ' ');
    return text;
}

std::string Describe(const nlohmann::json& value) {
    switch (value.type()) {
        case nlohmann::json::value_t::object:
            return "an object";
        case nlohmann::json::value_t::array:
            return "an array";
        case nlohmann::json::value_t::string:
            return "the text \"" + value.get<std::string>() + "\"";
        case nlohmann::json::value_t::boolean:
            return value.get<bool>() ? "true" : "false";
        case nlohmann::json::value_t::null:
            return "null";
        default:
            return "the number " + value.dump();
    }
}

// The number of single-letter edits between two short names.
std::size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

std::string Suggest(const std::string& key, std::initializer_list<const char*> known) {
    for (const char* candidate : known) {
        if (EditDistance(key, candidate) <= 2)
            return std::string(", did you mean \"") + candidate + "\"?";
    }
    std::string text = ", known keys:";
    for (const char* candidate : known)
        text += std::string(" ") + candidate;
    return text;
}

}  // namespace

JsonError::JsonError(std::string message) : std::runtime_error(OnOneLine(std::move(message))) {}

void ThrowExpected(const std::string& path, const std::string& expected,
                   const nlohmann::json& found) {
    throw JsonError((path.empty() ? "top level" : path) + ": expected " + expected + ", found " +
                    Describe(found));
}

nlohmann::json ParseJson(const std::string& text, const std::string& name) {
    try {
        return nlohmann::json::parse(text, nullptr, true, true);
    } catch (const nlohmann::json::parse_error& error) {
        const std::size_t end = std::min(error.byte, text.size());
        const auto line =
            1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n');
        throw JsonError(name + ": no valid JSON at line " + std::to_string(line));
    } catch (const nlohmann::json::out_of_range&) {
        throw JsonError(name + ": a number is too large");
    }
}

JsonObject::JsonObject(const nlohmann::json& value, std::string path,
                       std::initializer_list<const char*> known)
    : value_(value), path_(std::move(path)) {
    if (!value.is_object()) ThrowExpected(path_, "an object", value);
    for (const auto& item : value.items()) {
        const auto same = [&](const char* name) { return item.key() == name; };
        if (std::any_of(known.begin(), known.end(), same)) continue;
        throw JsonError(PathOf(item.key()) + ": unknown key" + Suggest(item.key(), known));
    }
}

std::string JsonObject::PathOf(const std::string& key) const {
    return path_.empty() ? key : path_ + "." + key;
}

const nlohmann::json* JsonObject::Find(const char* key) const {
    const auto found = value_.find(key);
    return found == value_.end() ? nullptr : &*found;
}

const nlohmann::json& JsonObject::Require(const char* key, const char* expected) const {
    const nlohmann::json* found = Find(key);
    if (found == nullptr) throw JsonError(PathOf(key) + ": missing, expected " + expected);
    return *found;
}

std::optional<std::uint32_t> JsonObject::Number(const char* key, std::uint32_t min,
                                                std::uint32_t max) const {
    const nlohmann::json* found = Find(key);
    if (found == nullptr) return std::nullopt;
    const bool fits = found->is_number_unsigned() && found->get<std::uint64_t>() >= min &&
                      found->get<std::uint64_t>() <= max;
    if (!fits) {
        ThrowExpected(PathOf(key),
                      "a whole number from " + std::to_string(min) + " to " + std::to_string(max),
                      *found);
    }
    return found->get<std::uint32_t>();
}

std::optional<bool> JsonObject::Flag(const char* key) const {
    const nlohmann::json* found = Find(key);
    if (found == nullptr) return std::nullopt;
    if (!found->is_boolean()) ThrowExpected(PathOf(key), "true or false", *found);
    return found->get<bool>();
}

std::optional<std::string> JsonObject::Text(const char* key, std::size_t max_size) const {
    const nlohmann::json* found = Find(key);
    if (found == nullptr) return std::nullopt;
    if (!found->is_string() || found->get_ref<const std::string&>().size() > max_size) {
        ThrowExpected(PathOf(key), "text of at most " + std::to_string(max_size) + " bytes",
                      *found);
    }
    return found->get<std::string>();
}

std::uint32_t ReadHexNumber(const nlohmann::json& value, const std::string& path,
                            std::uint32_t max) {
    char limit[16];
    *std::to_chars(limit, limit + sizeof limit - 1, max, 16).ptr = '\0';
    const std::string expected = std::string("hex text such as \"7E0\", at most ") + limit;
    if (!value.is_string()) ThrowExpected(path, expected, value);
    std::string_view text = value.get_ref<const std::string&>();
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    if (error != std::errc() || end != text.data() + text.size() || number > max) {
        ThrowExpected(path, expected, value);
    }
    return number;
}

Bytes ReadHexBytes(const nlohmann::json& value, const std::string& path) {
    static const char* const kExpected = "bytes as hex text such as \"62 F1 90\"";
    if (!value.is_string()) ThrowExpected(path, kExpected, value);
    const std::optional<Bytes> bytes = ParseHex(value.get_ref<const std::string&>());
    if (!bytes) ThrowExpected(path, kExpected, value);
    return *bytes;
}

BytePattern ReadPattern(const nlohmann::json& value, const std::string& path) {
    static const char* const kExpected =
        "bytes such as \"22 F1 90\", \"??\" for any byte and \"*\" at the end for any more";
    if (!value.is_string()) ThrowExpected(path, kExpected, value);
    const std::optional<BytePattern> pattern =
        BytePattern::Parse(value.get_ref<const std::string&>());
    if (!pattern) ThrowExpected(path, kExpected, value);
    return *pattern;
}

std::string ReadName(const JsonObject& object) {
    const std::string name = *object.Text("name", 64);
    const auto is_blank = [](char letter) { return letter == ' ' || IsControl(letter); };
    if (name.empty() || std::any_of(name.begin(), name.end(), is_blank)) {
        throw JsonError(object.PathOf("name") + ": expected a name without blanks");
    }
    return name;
}

std::optional<Bytes> JsonObject::HexBytes(const char* key) const {
    const nlohmann::json* found = Find(key);
    if (found == nullptr) return std::nullopt;
    return ReadHexBytes(*found, PathOf(key));
}

std::optional<std::uint32_t> JsonObject::HexNumber(const char* key, std::uint32_t max) const {
    const nlohmann::json* found = Find(key);
    if (found == nullptr) return std::nullopt;
    return ReadHexNumber(*found, PathOf(key), max);
}

}  // namespace brennix
