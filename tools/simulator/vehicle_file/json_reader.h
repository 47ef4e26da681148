// Reads JSON objects and rejects unknown keys. Errors say where, what was expected and what was
// found.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

#include "protocol/wire.h"
#include "vehicle/byte_pattern.h"

namespace brennix {

constexpr std::uint32_t kMaxMs = 24 * 60 * 60 * 1000;  // the longest time allowed in a file

// Always one line, whatever text of the file it quotes.
class JsonError : public std::runtime_error {
public:
    explicit JsonError(std::string message);
};

// "control_units[1].request: expected hex text such as \"7E0\", found the number 2016"
[[noreturn]] void ThrowExpected(const std::string& path, const std::string& expected,
                                const nlohmann::json& found);

// Comments (// and /* */) are allowed. `name` precedes the message if the text is not JSON.
nlohmann::json ParseJson(const std::string& text, const std::string& name);

class JsonObject {
public:
    // `known`: all valid keys. Throws JsonError for any other key, or if `value` is not an object.
    JsonObject(const nlohmann::json& value, std::string path,
               std::initializer_list<const char*> known);

    const nlohmann::json* Find(const char* key) const;
    const nlohmann::json& Require(const char* key, const char* expected) const;
    std::string PathOf(const std::string& key) const;

    std::optional<std::uint32_t> Number(const char* key, std::uint32_t min,
                                        std::uint32_t max) const;
    std::optional<bool> Flag(const char* key) const;
    std::optional<std::string> Text(const char* key, std::size_t max_size) const;
    std::optional<Bytes> HexBytes(const char* key) const;
    // A number of at most `max` as hex text: "7E0", "0x7E0".
    std::optional<std::uint32_t> HexNumber(const char* key, std::uint32_t max) const;

    // Calls read(element, path) for each element of the array; an absent array has none.
    template <typename Read>
    void ForEach(const char* key, Read read) const {
        const nlohmann::json* list = Find(key);
        if (list == nullptr) return;
        if (!list->is_array()) ThrowExpected(PathOf(key), "an array", *list);
        for (std::size_t i = 0; i < list->size(); ++i) {
            read((*list)[i], PathOf(key) + "[" + std::to_string(i) + "]");
        }
    }

private:
    const nlohmann::json& value_;
    std::string path_;
};

std::uint32_t ReadHexNumber(const nlohmann::json& value, const std::string& path,
                            std::uint32_t max);
Bytes ReadHexBytes(const nlohmann::json& value, const std::string& path);
BytePattern ReadPattern(const nlohmann::json& value, const std::string& path);
// The value of "name", which must exist and have no blanks, since commands take it as a word.
std::string ReadName(const JsonObject& object);

}  // namespace brennix
