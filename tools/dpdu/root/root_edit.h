// Changes the text of a root file. Every byte that is not the entry's own stays as it is.

#ifndef TOOLS_DPDU_ROOT_ROOT_EDIT_H
#define TOOLS_DPDU_ROOT_ROOT_EDIT_H

#include <string>
#include <string_view>

#include "root/entry.h"

namespace dpdu::root {

// A root file without entries.
std::string EmptyRootFile();

// The text with this entry in place of those of the same name, or after the last one. It is the
// same text if the entry is there already. Throws xml::ParseError if the text is no root file.
std::string WithEntry(const std::string& text, const Entry& entry);

// The text without the entries of this name. If WithEntry added the only one, this is what
// WithEntry was given, byte for byte. Throws xml::ParseError as above.
std::string WithoutEntry(const std::string& text, std::string_view short_name);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_ROOT_EDIT_H
