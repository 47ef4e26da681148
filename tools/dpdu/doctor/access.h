// Access rights to files, folders and ports; one implementation per operating system.

#ifndef TOOLS_DPDU_DOCTOR_ACCESS_H
#define TOOLS_DPDU_DOCTOR_ACCESS_H

#include <cstdint>
#include <string>

namespace dpdu {

// Who can read the file besides its owner: "everyone", "the group staff"; empty: nobody.
std::string OtherReaders(const std::string& path);

// The command that restricts reading to the owner.
std::string KeepToOwnerCommand(const std::string& path);

// False also if there is no such folder.
bool CanCreateFilesIn(const std::string& folder);

// The command that creates a folder with its parents.
std::string CreateFolderCommand(const std::string& folder);

// Why a port that exists could not be opened, by the system's error.
enum class OpenFailure : std::uint8_t { kInUse, kNoAccess, kOther };
OpenFailure WhyNotOpened(int error);
extern const int kErrorOfPortInUse;

}  // namespace dpdu

#endif  // TOOLS_DPDU_DOCTOR_ACCESS_H
