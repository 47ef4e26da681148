#include "check/description_file.h"

#include <array>
#include <fstream>
#include <iterator>

#include "text/hex.h"
#include "text/names.h"

namespace dpdu::check {
namespace {

constexpr char kVersionAttribute[] = "MVCI_PART2_STANDARD_VERSION";
constexpr int kVersionBytes = 3;

// The decimal number that the text begins with, which it loses.
std::optional<std::uint32_t> TakeByte(std::string_view* text) {
    std::uint32_t number = 0;
    std::size_t length = 0;
    for (; length < text->size() && length < 4; ++length) {
        const char digit = (*text)[length];
        if (digit < '0' || digit > '9') break;
        number = number * 10 + static_cast<std::uint32_t>(digit - '0');
    }
    text->remove_prefix(length);
    if (length == 0 || number > 0xFF) return std::nullopt;
    return number;
}

}  // namespace

std::optional<xml::Document> ReadDescription(const std::string& path, const char* root_element,
                                             Group* group) {
    std::ifstream file(PathOf(path), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    try {
        xml::Document document = xml::Parse(text);
        if (document.root.name == root_element) return document;
        group->Wrong(path + ": the root element is " + document.root.name + ", not " + root_element,
                     "name the right file in the root file");
    } catch (const xml::ParseError& error) {
        group->Wrong(path + ", " + error.what(), "write well-formed XML in UTF-8");
    }
    return std::nullopt;
}

std::string PlaceOf(const xml::Element& element) {
    const std::string name = element.ChildText("SHORT_NAME");
    return "line " + std::to_string(element.line) + ": " + element.name +
           (name.empty() ? "" : " " + name);
}

std::optional<std::string> OneText(const xml::Element& parent, const char* child, Group* group) {
    const auto children = parent.ChildrenNamed(child);
    if (children.size() > 1) {
        group->Wrong(
            PlaceOf(parent) + " has " + child + " " + std::to_string(children.size()) + " times",
            "keep one");
        return std::nullopt;
    }
    std::string text = parent.ChildText(child);
    if (!text.empty()) return text;
    group->Wrong(PlaceOf(parent) + " has no " + child, "add it");
    return std::nullopt;
}

std::optional<std::int64_t> NumberIn(const std::string& text, const xml::Element& parent,
                                     std::string_view what, Group* group) {
    const bool is_negative = text.starts_with('-');
    const std::optional<std::uint32_t> number = ParseNumber(is_negative ? text.substr(1) : text);
    if (number) return is_negative ? -std::int64_t{*number} : std::int64_t{*number};
    group->Wrong(PlaceOf(parent) + ": " + std::string(what) + " '" + text + "' is no number",
                 "write a decimal number, or a hexadecimal one after 0x");
    return std::nullopt;
}

std::optional<std::uint32_t> OneNumber(const xml::Element& parent, const char* child,
                                       Group* group) {
    const std::optional<std::string> text = OneText(parent, child, group);
    if (!text) return std::nullopt;
    const std::optional<std::int64_t> number = NumberIn(*text, parent, child, group);
    if (!number) return std::nullopt;
    if (*number >= 0) return static_cast<std::uint32_t>(*number);
    group->Wrong(PlaceOf(parent) + ": " + child + " " + *text + " is negative",
                 "write a number from 0 to 4294967295");
    return std::nullopt;
}

std::optional<std::uint32_t> VersionIn(std::string_view text) {
    std::uint32_t packed = 0;
    for (int i = 0; i < kVersionBytes; ++i) {
        if (i > 0 && !text.starts_with('.')) return std::nullopt;
        if (i > 0) text.remove_prefix(1);
        const std::optional<std::uint32_t> number = TakeByte(&text);
        if (!number) return std::nullopt;
        packed = packed << 8 | *number;
    }
    if (!text.empty()) return std::nullopt;
    return packed << 8;
}

std::string VersionText(std::uint32_t packed) {
    return std::to_string(packed >> 24) + "." + std::to_string(packed >> 16 & 0xFF) + "." +
           std::to_string(packed >> 8 & 0xFF);
}

std::optional<std::uint32_t> StandardVersionOf(const xml::Element& root, Group* group) {
    const std::string* text = root.FindAttribute(kVersionAttribute);
    if (text == nullptr) {
        group->Wrong(root.name + " has no attribute " + std::string(kVersionAttribute),
                     "write the version of ISO 22900-2 there, such as 2.2.0");
        return std::nullopt;
    }
    const std::optional<std::uint32_t> version = VersionIn(*text);
    if (!version) {
        group->Wrong(std::string(kVersionAttribute) + " '" + *text + "' is no version",
                     "write three numbers, such as 2.2.0");
    }
    return version;
}

}  // namespace dpdu::check
