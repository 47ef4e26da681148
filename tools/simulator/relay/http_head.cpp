#include "relay/http_head.h"

#include <algorithm>
#include <cctype>

namespace brennix {

namespace {

constexpr std::string_view kEnd = "\r\n\r\n";

std::string_view Trim(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool IsToken(std::string_view text) {
    static constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || kMarks.find(static_cast<char>(c)) != std::string_view::npos;
    });
}

bool ReadFirstLine(std::string_view line, HttpHead* head) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last) return false;
    head->method = line.substr(0, first);
    head->target = line.substr(first + 1, last - first - 1);
    head->version = line.substr(last + 1);
    return IsToken(head->method) && !head->target.empty() &&
           head->target.find(' ') == std::string::npos &&
           (head->version == "HTTP/1.1" || head->version == "HTTP/1.0");
}

}  // namespace

std::string LowerCase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::string HttpHead::Field(std::string_view name) const {
    std::string text;
    const auto [first, last] = fields.equal_range(std::string(name));
    for (auto field = first; field != last; ++field)
        text += (text.empty() ? "" : ",") + field->second;
    return text;
}

bool HttpHead::Lists(std::string_view name, std::string_view word) const {
    const std::string text = LowerCase(Field(name));
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        if (Trim(std::string_view(text).substr(at, end - at)) == word) return true;
        at = end + 1;
    }
    return false;
}

bool HasWholeHead(std::string_view received) { return received.find(kEnd) != std::string::npos; }

std::optional<HttpHead> ReadHttpHead(std::string_view received) {
    HttpHead head;
    head.size = received.find(kEnd) + kEnd.size();
    std::string_view rest = received.substr(0, head.size - 2);
    bool is_first = true;
    while (!rest.empty()) {
        const std::size_t end = rest.find("\r\n");
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end + 2);
        if (is_first) {
            if (!ReadFirstLine(line, &head)) return std::nullopt;
            is_first = false;
            continue;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || !IsToken(line.substr(0, colon))) return std::nullopt;
        head.fields.emplace(LowerCase(line.substr(0, colon)), Trim(line.substr(colon + 1)));
    }
    return head;
}

}  // namespace brennix
