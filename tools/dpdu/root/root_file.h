// The machine's root file: where it is, and reading it.

#ifndef TOOLS_DPDU_ROOT_ROOT_FILE_H
#define TOOLS_DPDU_ROOT_ROOT_FILE_H

#include <string>
#include <vector>

#include "root/entry.h"

namespace dpdu::root {

// The file that applications of this process's kind read: Linux /etc/pdu_api_root.xml; Windows what
// the value "Root File" of HKEY_LOCAL_MACHINE\SOFTWARE\D-PDU API names in the 64-bit view. Empty:
// Windows has no such value.
std::string MachineRootFile();

// The entries of `file`, or of the machine's root file if it is empty. A file that does not exist
// has none. Throws Failure with one line if it cannot be read or is not a root file.
std::vector<Entry> ReadEntries(const std::string& file);

// The one entry of this name. Throws Failure if there is none, or several.
Entry FindEntry(const std::string& file, const std::string& short_name);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_ROOT_FILE_H
