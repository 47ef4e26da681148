#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>

#include "console/failure.h"
#include "root/root_store.h"

namespace dpdu::root {
namespace {

constexpr char kRootFile[] = "/etc/pdu_api_root.xml";
constexpr std::chrono::seconds kLockLimit{10};
constexpr std::chrono::milliseconds kLockPoll{20};
constexpr mode_t kNewMode = 0644;

[[noreturn]] void Refuse(const std::string& path, const std::string& what,
                         const std::string& outcome = "nothing was changed") {
    const int error = errno;
    std::string line = path + " cannot be " + what + " (" + std::strerror(error) + ")";
    if (error == EACCES || error == EPERM) line += "; run this as root";
    if (error == EROFS) line += "; make its file system writable";
    if (error == ENOSPC || error == EDQUOT || error == EFBIG) line += "; make room and try again";
    throw Failure(line + "; " + outcome);
}

class File {
public:
    explicit File(int descriptor) : descriptor_(descriptor) {}
    ~File() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return descriptor_ >= 0; }
    int Get() const { return descriptor_; }

private:
    int descriptor_;
};

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == path.npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool WriteAll(int file, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(file, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

// Only root may give a file away: another user cannot change a file that is not its own.
bool TakeRights(int file, const struct stat* old) {
    if (old == nullptr) return ::fchmod(file, kNewMode) == 0;
    return ::fchown(file, old->st_uid, old->st_gid) == 0 &&
           ::fchmod(file, old->st_mode & 07777U) == 0;
}

// A complete file of that name, on the disk. What a run that was ended has left is replaced.
void WriteBeside(const std::string& path, const std::string& text, const struct stat* old) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) Refuse(path, "removed");
    const File file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.IsOpen()) Refuse(path, "created");
    if (WriteAll(file.Get(), text) && TakeRights(file.Get(), old) && ::fsync(file.Get()) == 0) {
        return;
    }
    const int error = errno;
    ::unlink(path.c_str());
    errno = error;
    Refuse(path, "written");
}

void SyncFolder(const std::string& folder) {
    const File opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.IsOpen()) ::fsync(opened.Get());
}

// Removes the files unless they have got their names.
class Leftovers {
public:
    explicit Leftovers(std::array<std::string, 2> paths) : paths_(std::move(paths)) {}
    ~Leftovers() {
        for (const std::string& path : paths_)
            ::unlink(path.c_str());
    }
    Leftovers(const Leftovers&) = delete;
    Leftovers& operator=(const Leftovers&) = delete;

private:
    std::array<std::string, 2> paths_;
};

// No other program makes a file of this name.
std::string Beside(const std::string& path) { return path + ".dpdu-new"; }
std::string Backup(const std::string& path) { return path + ".bak"; }

[[noreturn]] void RefuseWithCopy(const std::string& path, const std::string& what) {
    Refuse(path, what, "it is as it was, and " + Backup(path) + " is a copy of it");
}

}  // namespace

std::string RegisteredRootFile() { return kRootFile; }
std::string UsualRootFile() { return kRootFile; }
void RegisterRootFile(const std::string&) {}
void UnregisterRootFile(const std::string&) {}

// A file of its own: any user could hold a lock on the folder. The last one to let go removes it.
struct RootFileLock::Held {
    std::string path;
    File file;
};

namespace {

// The file may have been removed by its last owner between opening and locking.
bool IsStillThere(int file, const std::string& path) {
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(file, &opened) == 0 && ::stat(path.c_str(), &named) == 0 &&
           opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

}  // namespace

RootFileLock::RootFileLock(const std::string& path) {
    const std::string lock_path = path + ".lock";
    const auto deadline = std::chrono::steady_clock::now() + kLockLimit;
    for (;;) {
        const int file = ::open(lock_path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (file < 0) Refuse(path, "changed");
        auto held = std::unique_ptr<Held>(new Held{lock_path, File(file)});
        if (::flock(file, LOCK_EX | LOCK_NB) == 0) {
            if (!IsStillThere(file, lock_path)) continue;
            held_ = std::move(held);
            // Left by an installer that was ended.
            ::unlink(Beside(path).c_str());
            ::unlink(Beside(Backup(path)).c_str());
            return;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw Failure("another installer has been changing " + path +
                          " for 10 s; wait until it ends and try again; nothing was changed");
        }
        std::this_thread::sleep_for(kLockPoll);
    }
}

RootFileLock::~RootFileLock() { ::unlink(held_->path.c_str()); }

std::string FinalPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> target(::realpath(path.c_str(), nullptr),
                                                             &std::free);
    if (target != nullptr) return target.get();
    struct stat link = {};
    if (::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        throw Failure(path + " is a link that leads to no file; correct it; nothing was changed");
    }
    return path;
}

std::optional<std::string> ReadWholeFile(const std::string& path) {
    // Opening a pipe would wait for somebody who writes.
    const File file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen() && errno == ENOENT) return std::nullopt;
    if (!file.IsOpen()) Refuse(path, "read");
    struct stat kind = {};
    if (::fstat(file.Get(), &kind) != 0) Refuse(path, "read");
    if (!S_ISREG(kind.st_mode)) {
        throw Failure(path + " is not a file; name another; nothing was changed");
    }
    std::string text;
    std::array<char, 65536> block;
    for (;;) {
        const ssize_t count = ::read(file.Get(), block.data(), block.size());
        if (count == 0) return text;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) Refuse(path, "read");
        text.append(block.data(), static_cast<std::size_t>(count));
    }
}

void RequireWritable(const std::string& path) {
    const bool is_there = ::access(path.c_str(), F_OK) == 0;
    if (is_there && ::access(path.c_str(), W_OK) != 0) Refuse(path, "written");
    if (::access(FolderOf(path).c_str(), W_OK | X_OK) != 0) Refuse(path, "replaced");
}

void ReplaceWholeFile(const std::string& path, const std::optional<std::string>& old_text,
                      const std::string& text) {
    struct stat old = {};
    const struct stat* rights = ::stat(path.c_str(), &old) == 0 ? &old : nullptr;
    const std::string backup = Backup(path);
    const Leftovers leftovers({Beside(path), Beside(backup)});
    if (old_text) WriteBeside(Beside(backup), *old_text, rights);
    WriteBeside(Beside(path), text, rights);
    if (old_text && ::rename(Beside(backup).c_str(), backup.c_str()) != 0) {
        Refuse(backup, "replaced");
    }
    if (::rename(Beside(path).c_str(), path.c_str()) != 0) RefuseWithCopy(path, "replaced");
    SyncFolder(FolderOf(path));
}

void RemoveWholeFile(const std::string& path, const std::string& old_text) {
    struct stat old = {};
    const struct stat* rights = ::stat(path.c_str(), &old) == 0 ? &old : nullptr;
    const std::string backup = Backup(path);
    const Leftovers leftovers({Beside(path), Beside(backup)});
    WriteBeside(Beside(backup), old_text, rights);
    if (::rename(Beside(backup).c_str(), backup.c_str()) != 0) Refuse(backup, "replaced");
    if (::unlink(path.c_str()) != 0) RefuseWithCopy(path, "removed");
    SyncFolder(FolderOf(path));
}

}  // namespace dpdu::root
