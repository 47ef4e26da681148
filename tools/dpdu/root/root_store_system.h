// What root_store.cpp needs of the system to change files; implemented beside the rest of
// root_store.h for each operating system.

#ifndef TOOLS_DPDU_ROOT_ROOT_STORE_SYSTEM_H
#define TOOLS_DPDU_ROOT_ROOT_STORE_SYSTEM_H

#include <string>

namespace dpdu::root {

// The name of a file while it is written. No other program makes a file of this name.
std::string NewNameOf(const std::string& path);
std::string BackupOf(const std::string& path);

// Throws Failure for the system's last error: "PATH cannot be WHAT (ERROR); ADVICE; OUTCOME".
[[noreturn]] void RefuseChange(const std::string& path, const std::string& what,
                               const std::string& outcome = "nothing was changed");

// Makes a complete file, on the disk, with owner and rights of the file `like` if there is one.
// What a run that was ended has left under its name is replaced. A failure leaves no file.
void WriteNewFile(const std::string& path, const std::string& text, const std::string& like);

// False: the system's last error says why not.
bool RenameFile(const std::string& from, const std::string& to);
bool RemoveFile(const std::string& path);
// Puts the names of the folder's files on the disk, where the functions above do not.
void SyncFolderOf(const std::string& path);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_ROOT_STORE_SYSTEM_H
