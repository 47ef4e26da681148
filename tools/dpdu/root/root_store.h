// The files of the root file as the system keeps them; one implementation per operating system.
// Functions throw Failure with one line that says what to do.

#ifndef TOOLS_DPDU_ROOT_ROOT_STORE_H
#define TOOLS_DPDU_ROOT_ROOT_STORE_H

#include <memory>
#include <optional>
#include <string>

namespace dpdu::root {

// Linux: always /etc/pdu_api_root.xml. Windows: the file that the registry's 64-bit view names;
// empty if it has no such value. Throws for a value that names no file with its full path.
std::string RegisteredRootFile();
// Where the file is made if the system has none.
std::string UsualRootFile();
// Windows: enters the file in the registry. Linux: does nothing, its place is fixed.
void RegisterRootFile(const std::string& path);
// Windows: removes what RegisterRootFile has entered, and the key if nothing else is in it.
void UnregisterRootFile(const std::string& path);

// Keeps other installers that use this class away from the file while it lives. Waits at most 10 s
// for one. Leaves no file; that of an installer that was ended is taken over.
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

// The file that symbolic links lead to. Throws if one leads to nothing.
std::string FinalPath(const std::string& path);
// Empty: there is no such file.
std::optional<std::string> ReadWholeFile(const std::string& path);
// Throws if this user may not replace the file.
void RequireWritable(const std::string& path);
// Replaces the file, or makes it. It has the old content or the new one at any time; path + ".bak"
// becomes a copy of the old one. Owner and rights stay. A failure leaves the file as it was.
void ReplaceWholeFile(const std::string& path, const std::optional<std::string>& old_text,
                      const std::string& text);
// Removes the file; its content goes to path + ".bak".
void RemoveWholeFile(const std::string& path, const std::string& old_text);

}  // namespace dpdu::root

#endif  // TOOLS_DPDU_ROOT_ROOT_STORE_H
