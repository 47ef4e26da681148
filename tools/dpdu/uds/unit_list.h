// Lists of control units as a user writes them, on the command line or in a file.
//
//   7E0:7E8              asked and answering on these identifiers
//   7E0                  answering eight above, as on-board diagnosis has it
//   18DA10F1             likewise, target and source exchanged: 18DAF110
//   7E0-7E7              all from one to the other; 18DA10F1-18DA1FF1 counts in the target byte
//   7E0:7E8,7E1:7E9      several

#ifndef TOOLS_DPDU_UDS_UNIT_LIST_H
#define TOOLS_DPDU_UDS_UNIT_LIST_H

#include <istream>
#include <string>
#include <vector>

#include "uds/ecu_address.h"

namespace dpdu {

struct NamedUnit {
    EcuAddress address;
    std::string name;  // may be empty
};

// Throws UsageError for what is not such a list.
std::vector<NamedUnit> ParseUnits(const std::string& text);

// A list a line, a name behind it if there is one; empty lines and what follows a # do not count.
// `path` is for messages. Throws UsageError for a line that is none.
std::vector<NamedUnit> ReadUnits(std::istream* stream, const std::string& path);

// The same from a file. Throws UsageError when it cannot be read.
std::vector<NamedUnit> ReadUnitFile(const std::string& path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_UNIT_LIST_H
