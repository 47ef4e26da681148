// The machine's root file: where it is, reading it, and this project's entry in it.

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

struct Change {
    std::string path;      // the root file
    bool is_done = false;  // false: there was nothing to change
};

// Puts the entry of the library in `folder` into the file, or into the machine's root file if it is
// empty, in place of one of the same name; that of another version stays. Makes the file if it does
// not exist. Throws Failure with one line that says what is as it was, if that cannot be done.
Change AddOwnEntry(const std::string& file, const std::string& folder);

// Takes the entry out again. A file that then is as AddOwnEntry makes one, without entries, is
// removed. Throws Failure as AddOwnEntry.
Change RemoveOwnEntry(const std::string& file);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_ROOT_FILE_H
