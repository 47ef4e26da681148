#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvik::descriptions {

using Attributes = std::initializer_list<std::pair<std::string_view, std::string>>;

// Writes elements one below the other, two blanks deeper in each.
class XmlWriter {
public:
    // The root element, which Text() closes.
    XmlWriter(std::string_view root, Attributes attributes);

    void Open(std::string_view name, Attributes attributes = {});
    void Close();
    void Line(std::string_view name, std::string_view text);
    void Empty(std::string_view name, Attributes attributes);

    // The whole file. Every element is closed by then.
    std::string Text() &&;

private:
    void Indent();
    void Tag(std::string_view name, Attributes attributes, std::string_view end);

    std::string text_;
    std::vector<std::string> open_;  // names of the elements around
};

}  // namespace tarvik::descriptions
