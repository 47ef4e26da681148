#include "root/entry.h"

#include <algorithm>

#include "console/failure.h"

namespace dpdu::root {
namespace {

constexpr std::string_view kScheme = "file:///";

bool IsLetter(char byte) { return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z'); }

bool IsControl(char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F; }

// The file that lists the address would be damaged for everybody otherwise.
bool IsUtf8(const std::string& path) {
    try {
        xml::Parse("<path>" + xml::Escaped(path) + "</path>");
        return true;
    } catch (const xml::ParseError&) {
        return false;
    }
}

// "C:/..."
bool HasDrive(std::string_view path) {
    return path.size() >= 3 && IsLetter(path[0]) && path[1] == ':' && path[2] == '/';
}

std::string UriIn(const xml::Element& entry, std::string_view element) {
    const xml::Element* file = entry.FindChild(element);
    const std::string* uri = file == nullptr ? nullptr : file->FindAttribute("URI");
    return uri == nullptr ? "" : *uri;
}

}  // namespace

std::vector<Entry> EntriesOf(const xml::Document& document) {
    if (document.root.name != kRootElement) {
        throw xml::ParseError("line " + std::to_string(document.root.line) + ": the element is " +
                              document.root.name + ", not " + kRootElement);
    }
    std::vector<Entry> entries;
    for (const xml::Element* element : document.root.ChildrenNamed(kEntryElement)) {
        entries.push_back({.short_name = element->ChildText("SHORT_NAME"),
                           .description = element->ChildText("DESCRIPTION"),
                           .supplier = element->ChildText("SUPPLIER_NAME"),
                           .library_uri = UriIn(*element, "LIBRARY_FILE"),
                           .module_description_uri = UriIn(*element, "MODULE_DESCRIPTION_FILE"),
                           .cable_description_uri = UriIn(*element, "CABLE_DESCRIPTION_FILE"),
                           .line = element->line});
    }
    return entries;
}

std::string PathOfUri(std::string_view uri) {
    if (!uri.starts_with(kScheme)) return "";
    const std::string_view path = uri.substr(kScheme.size());
    return HasDrive(path) ? std::string(path) : "/" + std::string(path);
}

bool HasParentFolder(std::string_view path) {
    for (std::size_t at = 0; (at = path.find("..", at)) != path.npos; at += 2) {
        const bool begins = at == 0 || path[at - 1] == '/';
        const bool ends = at + 2 == path.size() || path[at + 2] == '/';
        if (begins && ends) return true;
    }
    return false;
}

std::string UriOfPath(const std::string& path) {
    std::string slashed = path;
    if (!path.starts_with('/')) std::ranges::replace(slashed, '\\', '/');
    const auto refuse = [&path](const std::string& reason) {
        throw Failure("no application accepts an address for '" + path + "': " + reason +
                      "; choose another folder");
    };
    if (slashed.starts_with("//")) refuse("it is a network path");
    if (!slashed.starts_with('/') && !HasDrive(slashed)) refuse("it is relative");
    if (HasParentFolder(slashed)) refuse("it contains '..'");
    if (std::ranges::any_of(slashed, IsControl)) refuse("it contains a control character");
    if (!IsUtf8(slashed)) refuse("it is not in UTF-8");
    for (const char byte : {'?', '#', '%', '\\'}) {
        if (slashed.find(byte) != slashed.npos)
            refuse("it contains '" + std::string(1, byte) + "'");
    }
    return std::string(kScheme) + slashed.substr(slashed.starts_with('/') ? 1 : 0);
}

}  // namespace dpdu::root
