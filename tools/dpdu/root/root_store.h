// The files of the root file as the system keeps them; one implementation per operating system.
// Functions throw Failure with one line that says what to do.

#ifndef TOOLS_DPDU_ROOT_ROOT_STORE_H
#define TOOLS_DPDU_ROOT_ROOT_STORE_H

#include <memory>
#include <optional>
#include <string>

namespace dpdu::root {

// Linux: always /etc/pdu_api_root.xml. Windows: the file that the registry's 64-bit view names;
// empty if it names none.
std::string RegisteredRootFile();
// Where the file is made if the system has none.
std::string UsualRootFile();
// Windows: enters the file in the registry. Linux: does nothing, its place is fixed.
void RegisterRootFile(const std::string& path);
// Windows: removes the entry of RegisterRootFile, and the folder and key if nothing else is in
// them.
void UnregisterRootFile(const std::string& path);

// Keeps other installers that use this class away from the file while it lives. Waits at most 10 s
// for one. Leaves no file.
class RootFileLock {
public:
    explicit RootFileLock(const std::string& path);
    ~RootFileLock();
    RootFileLock(const RootFileLock&) = delete;
    RootFileLock& operator=(const RootFileLock&) = delete;

private:
    struct Held;
    std::unique_ptr<Held> held_;
};

// The file that symbolic links lead to.
std::string FinalPath(const std::string& path);
// Empty: there is no such file.
std::optional<std::string> ReadWholeFile(const std::string& path);
// Throws if this user may not replace the file.
void RequireWritable(const std::string& path);
// Replaces the file, or makes it. It has the old content or the new one at any time, and so has
// path + ".bak", which becomes a copy of the old one. Owner and rights stay. A failure leaves
// everything as it was.
void ReplaceWholeFile(const std::string& path, const std::optional<std::string>& old_text,
                      const std::string& text);
// Removes the file; its content goes to path + ".bak".
void RemoveWholeFile(const std::string& path, const std::string& old_text);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_ROOT_STORE_H
