// Lists of control units, from the command line or a file.
//
//   7E0:7E8              request and response identifier
//   7E0                  the response identifier is eight above, as in OBD
//   18DA10F1             the response identifier swaps target and source: 18DAF110
//   7E0-7E7              a range; 18DA10F1-18DA1FF1 counts in the target byte
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

// Throws UsageError if the text is not such a list.
std::vector<NamedUnit> ParseUnits(const std::string& text);

// One list per line, optionally followed by a name; ignores empty lines and everything after #.
// `path` is for messages. Throws UsageError for an invalid line.
std::vector<NamedUnit> ReadUnits(std::istream* stream, const std::string& path);

// As above, from a file. Throws UsageError if it cannot be read.
std::vector<NamedUnit> ReadUnitFile(const std::string& path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_UNIT_LIST_H
