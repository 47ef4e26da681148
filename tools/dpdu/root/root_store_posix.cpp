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
#include "root/root_store_system.h"

namespace dpdu::root {
namespace {

constexpr char kRootFile[] = "/etc/pdu_api_root.xml";
constexpr std::chrono::seconds kLockLimit{10};
constexpr std::chrono::milliseconds kLockPoll{20};
constexpr mode_t kNewMode = 0644;

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

}  // namespace

void RefuseChange(const std::string& path, const std::string& what, const std::string& outcome) {
    const int error = errno;
    std::string line = path + " cannot be " + what + " (" + std::strerror(error) + ")";
    if (error == EACCES || error == EPERM) line += "; run this as root";
    if (error == EROFS) line += "; make its file system writable";
    if (error == ENOSPC || error == EDQUOT || error == EFBIG) line += "; make room and try again";
    throw Failure(line + "; " + outcome);
}

void WriteNewFile(const std::string& path, const std::string& text, const std::string& like) {
    struct stat old = {};
    const struct stat* rights = ::stat(like.c_str(), &old) == 0 ? &old : nullptr;
    if (!RemoveFile(path) && errno != ENOENT) RefuseChange(path, "removed");
    const File file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.IsOpen()) RefuseChange(path, "created");
    if (WriteAll(file.Get(), text) && TakeRights(file.Get(), rights) && ::fsync(file.Get()) == 0) {
        return;
    }
    const int error = errno;
    RemoveFile(path);
    errno = error;
    RefuseChange(path, "written");
}

bool RenameFile(const std::string& from, const std::string& to) {
    return ::rename(from.c_str(), to.c_str()) == 0;
}

bool RemoveFile(const std::string& path) { return ::unlink(path.c_str()) == 0; }

void SyncFolderOf(const std::string& path) {
    const File opened(::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.IsOpen()) ::fsync(opened.Get());
}

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
        if (file < 0) RefuseChange(path, "changed");
        auto held = std::unique_ptr<Held>(new Held{lock_path, File(file)});
        if (::flock(file, LOCK_EX | LOCK_NB) == 0) {
            if (!IsStillThere(file, lock_path)) continue;
            held_ = std::move(held);
            // Left by an installer that was ended.
            RemoveFile(NewNameOf(path));
            RemoveFile(NewNameOf(BackupOf(path)));
            return;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw Failure("another installer has been changing " + path +
                          " for 10 s; wait until it ends and try again; nothing was changed");
        }
        std::this_thread::sleep_for(kLockPoll);
    }
}

RootFileLock::~RootFileLock() { RemoveFile(held_->path); }

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
    if (!file.IsOpen()) RefuseChange(path, "read");
    struct stat kind = {};
    if (::fstat(file.Get(), &kind) != 0) RefuseChange(path, "read");
    if (!S_ISREG(kind.st_mode)) {
        throw Failure(path + " is not a file; name another; nothing was changed");
    }
    std::string text;
    std::array<char, 65536> block;
    for (;;) {
        const ssize_t count = ::read(file.Get(), block.data(), block.size());
        if (count == 0) return text;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) RefuseChange(path, "read");
        text.append(block.data(), static_cast<std::size_t>(count));
    }
}

void RequireWritable(const std::string& path) {
    const bool is_there = ::access(path.c_str(), F_OK) == 0;
    if (is_there && ::access(path.c_str(), W_OK) != 0) RefuseChange(path, "written");
    if (::access(FolderOf(path).c_str(), W_OK | X_OK) != 0) RefuseChange(path, "replaced");
}

}  // namespace dpdu::root
