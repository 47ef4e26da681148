// Who may do what with a file or a port; one implementation per operating system.

#ifndef TOOLS_DPDU_DOCTOR_ACCESS_H
#define TOOLS_DPDU_DOCTOR_ACCESS_H

#include <string>

namespace dpdu {

// Who can read the file beside its owner: "everyone", "the group staff"; empty: nobody.
std::string OtherReaders(const std::string& path);

// The command that takes that from them.
std::string KeepToOwnerCommand(const std::string& path);

// What keeps this user from opening a serial port, as advice; empty: nothing does.
std::string PortAdvice(const std::string& path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_ACCESS_H
