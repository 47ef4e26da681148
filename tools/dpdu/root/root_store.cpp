#include "root/root_store.h"

#include <array>
#include <utility>

#include "root/root_store_system.h"

namespace dpdu::root {
namespace {

// Removes the files unless they have got their names.
class Leftovers {
public:
    explicit Leftovers(std::array<std::string, 2> paths) : paths_(std::move(paths)) {}
    ~Leftovers() {
        for (const std::string& path : paths_)
            RemoveFile(path);
    }
    Leftovers(const Leftovers&) = delete;
    Leftovers& operator=(const Leftovers&) = delete;

private:
    std::array<std::string, 2> paths_;
};

[[noreturn]] void RefuseWithCopy(const std::string& path, const std::string& what) {
    RefuseChange(path, what, "it is as it was, and " + BackupOf(path) + " is a copy of it");
}

}  // namespace

std::string NewNameOf(const std::string& path) { return path + ".dpdu-new"; }
std::string BackupOf(const std::string& path) { return path + ".bak"; }

// Both files are complete before the first of them gets its name.
void ReplaceWholeFile(const std::string& path, const std::optional<std::string>& old_text,
                      const std::string& text) {
    const std::string backup = BackupOf(path);
    const Leftovers leftovers({NewNameOf(path), NewNameOf(backup)});
    if (old_text) WriteNewFile(NewNameOf(backup), *old_text, path);
    WriteNewFile(NewNameOf(path), text, path);
    if (old_text && !RenameFile(NewNameOf(backup), backup)) RefuseChange(backup, "replaced");
    if (!RenameFile(NewNameOf(path), path)) RefuseWithCopy(path, "replaced");
    SyncFolderOf(path);
}

void RemoveWholeFile(const std::string& path, const std::string& old_text) {
    const std::string backup = BackupOf(path);
    const Leftovers leftovers({NewNameOf(path), NewNameOf(backup)});
    WriteNewFile(NewNameOf(backup), old_text, path);
    if (!RenameFile(NewNameOf(backup), backup)) RefuseChange(backup, "replaced");
    if (!RemoveFile(path)) RefuseWithCopy(path, "removed");
    SyncFolderOf(path);
}

}  // namespace dpdu::root
