// Checks an entry of the root file: its elements, addresses and files.

#ifndef TOOLS_DPDU_CHECK_ENTRY_CHECK_H
#define TOOLS_DPDU_CHECK_ENTRY_CHECK_H

#include <string>
#include <vector>

#include "check/group.h"
#include "xml/document.h"

namespace dpdu::check {

// Paths; empty: no file could be read there.
struct EntryFiles {
    std::string library;
    std::string module_description;
    std::string cable_description;
};

EntryFiles CheckEntry(const xml::Element& entry, Findings* findings);

// A note for each place where somebody besides administrators can change or replace a file.
void CheckRights(const std::vector<std::string>& paths, Findings* findings);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_ENTRY_CHECK_H
