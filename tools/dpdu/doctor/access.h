// Access rights to files; one implementation per operating system.

#ifndef TOOLS_DPDU_DOCTOR_ACCESS_H
#define TOOLS_DPDU_DOCTOR_ACCESS_H

#include <string>

namespace dpdu {

// Who can read the file besides its owner: "everyone", "the group staff"; empty: nobody.
std::string OtherReaders(const std::string& path);

// The command that restricts reading to the owner.
std::string KeepToOwnerCommand(const std::string& path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_ACCESS_H
