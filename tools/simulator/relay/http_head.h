// The head of an HTTP request: its first line and its fields.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace brennix {

struct HttpHead {
    std::string method;
    std::string target;
    std::string version;                             // "HTTP/1.1"
    std::multimap<std::string, std::string> fields;  // names in lower case
    std::size_t size = 0;                            // bytes, with the empty line

    // Empty if there is none; several of the same name are joined by commas.
    std::string Field(std::string_view name) const;
    // Whether that field's comma-separated list has this word; the case does not matter.
    bool Lists(std::string_view name, std::string_view word) const;
};

// The longest head accepted.
constexpr std::size_t kMaxHeadSize = 8192;

std::string LowerCase(std::string_view text);

// Whether `received` holds the empty line that ends a head.
bool HasWholeHead(std::string_view received);
// Empty for a head that breaks the grammar.
std::optional<HttpHead> ReadHttpHead(std::string_view received);

}  // namespace brennix
