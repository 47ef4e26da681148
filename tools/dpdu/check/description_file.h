// What module and cable description files have in common.

#ifndef TOOLS_DPDU_CHECK_DESCRIPTION_FILE_H
#define TOOLS_DPDU_CHECK_DESCRIPTION_FILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "check/group.h"
#include "xml/document.h"

namespace dpdu::check {

// Empty, with a finding: the file is not well-formed, not UTF-8, or has another root element.
std::optional<xml::Document> ReadDescription(const std::string& path, const char* root_element,
                                             Group* group);

// "line 12: COMPARAM CP_P2Max"; without a SHORT_NAME only the element.
std::string PlaceOf(const xml::Element& element);

// The text of the one child; nothing, with a finding, if it is missing, there twice or empty.
std::optional<std::string> OneText(const xml::Element& parent, const char* child, Group* group);

// Decimal or 0x; `what` names it in the finding: "ID".
std::optional<std::int64_t> NumberIn(const std::string& text, const xml::Element& parent,
                                     std::string_view what, Group* group);

// The text of the one child as a number from 0 to 2^32-1.
std::optional<std::uint32_t> OneNumber(const xml::Element& parent, const char* child, Group* group);

// "2.2.2" with three numbers of at most one byte each; packed as the library has them.
std::optional<std::uint32_t> VersionIn(std::string_view text);
std::string VersionText(std::uint32_t packed);

// The attribute MVCI_PART2_STANDARD_VERSION, with a finding if it has another form or is missing.
std::optional<std::uint32_t> StandardVersionOf(const xml::Element& root, Group* group);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_DESCRIPTION_FILE_H
