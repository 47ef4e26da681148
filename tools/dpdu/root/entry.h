// An installed D-PDU library, as the machine's root file lists it.

#ifndef TOOLS_DPDU_ROOT_ENTRY_H
#define TOOLS_DPDU_ROOT_ENTRY_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "xml/document.h"

namespace dpdu::root {

inline constexpr char kRootElement[] = "MVCI_PDU_API_ROOT";
inline constexpr char kEntryElement[] = "MVCI_PDU_API";

// A field is empty if its element or its address is missing.
struct Entry {
    std::string short_name;
    std::string description;
    std::string supplier;
    std::string library_uri;  // as written, "file:///..."
    std::string module_description_uri;
    std::string cable_description_uri;
    std::size_t line = 0;  // in the root file; 0: not of a file
};

// In the order of the file. Throws xml::ParseError if the root element is another one.
std::vector<Entry> EntriesOf(const xml::Document& document);

// The path that an address names: "file:///C:/a b" is "C:/a b", "file:///opt/x" is "/opt/x".
// Percent-encoding stays as it is: clients do not decode it. Empty: not an address of this form.
std::string PathOfUri(std::string_view uri);
// True if a part of the path is "..".
bool HasParentFolder(std::string_view path);
// The address of an absolute path, with forward slashes. Throws Failure if no address that clients
// accept can name the path: it is relative, on another host, or contains "..", '?', '#' or '%'.
std::string UriOfPath(const std::string& path);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_ENTRY_H
