#include "platform/files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/posix/standard_descriptors.h"

namespace tarvik {

const char kPathSeparator = '/';
const char* const kTextLineEnd = "\n";

struct OsAppendFile {
    int descriptor;
};

namespace {

// False: it does not fit.
bool CopyPath(char* path, std::size_t capacity, const char* first, const char* second) {
    const int length = std::snprintf(path, capacity, "%s%s", first, second);
    return length >= 0 && static_cast<std::size_t>(length) < capacity;
}

// True: the line of the process's memory map covers `address` with a file; `*file` is its path.
bool MapLineCovers(char* line, std::uintptr_t address, char** file) {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    if (std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR, &begin, &end) != 2) return false;
    if (address < begin || address >= end) return false;
    *file = std::strchr(line, '/');
    return *file != nullptr;
}

// Gives `file` the owner of `replaced`, if that exists.
bool KeepOwner(const char* file, const char* replaced) {
    struct stat before;
    struct stat now;
    if (::stat(replaced, &before) != 0) return errno == ENOENT;
    if (::stat(file, &now) != 0) return false;
    if (now.st_uid == before.st_uid) return true;
    return ::chown(file, before.st_uid, before.st_gid) == 0;
}

// So that the new name of the file is on disk. Best effort: not every file system can do it, and
// the file has its name already.
void SyncFolderOf(const char* file) {
    char folder[kMaxPath];
    if (!CopyPath(folder, sizeof folder, file, "")) return;
    char* separator = std::strrchr(folder, '/');
    if (separator == nullptr) return;
    separator[separator == folder ? 1 : 0] = '\0';
    const StandardDescriptorsTaken standard;
    const int descriptor = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    ::fsync(descriptor);
    ::close(descriptor);
}

// The flags of fopen for this mode string.
int OpenFlags(const char* mode) {
    const bool update = std::strchr(mode, '+') != nullptr;
    switch (*mode) {
        case 'r':
            return update ? O_RDWR : O_RDONLY;
        case 'w':
            return O_CREAT | O_TRUNC | (update ? O_RDWR : O_WRONLY);
        default:
            // Opening a FIFO or a terminal does not block.
            return O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY |
                   (update ? O_RDWR : O_WRONLY);
    }
}

bool IsOwnFileWithOneName(int descriptor) {
    struct stat found;
    return ::fstat(descriptor, &found) == 0 && S_ISREG(found.st_mode) &&
           found.st_uid == ::geteuid() && found.st_nlink == 1;
}

}  // namespace

std::uint32_t OsTempPath(char* path, std::uint32_t capacity) {
    const char* folder = std::getenv("TMPDIR");
    if (folder == nullptr || *folder == '\0') folder = "/tmp";
    const std::size_t length = std::strlen(folder);
    const char* separator = folder[length - 1] == '/' ? "" : "/";
    const auto total = static_cast<std::uint32_t>(length + std::strlen(separator));
    if (total >= capacity) return total + 1;
    CopyPath(path, capacity, folder, separator);
    return total;
}

const char* OsFallbackTempPath() { return "/tmp/"; }

bool OsUserDataFolder(char* path, std::size_t capacity) {
    // A relative one is invalid and counts as not set.
    const char* config_home = std::getenv("XDG_CONFIG_HOME");
    if (config_home != nullptr && *config_home == '/') {
        return CopyPath(path, capacity, config_home, "");
    }
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') return false;
    return CopyPath(path, capacity, home, "/.config");
}

// The loader knows only the name that it was given, perhaps relative to a former current folder;
// the memory map has the file's full path.
bool OsLibraryFolder(char* path, std::size_t capacity) {
    std::FILE* maps = OsOpenStream("/proc/self/maps", "r");
    if (maps == nullptr) return false;
    const auto address = reinterpret_cast<std::uintptr_t>(&OsLibraryFolder);
    char line[4096 + 128];
    char* file = nullptr;
    while (file == nullptr && std::fgets(line, sizeof line, maps) != nullptr) {
        if (!MapLineCovers(line, address, &file)) file = nullptr;
    }
    std::fclose(maps);
    if (file == nullptr) return false;
    *std::strrchr(file, '/') = '\0';
    return CopyPath(path, capacity, file, "");
}

bool OsFileExists(const char* path) {
    struct stat found;
    return ::stat(path, &found) == 0 && !S_ISDIR(found.st_mode);
}

bool OsFileWritable(const char* path) {
    const StandardDescriptorsTaken standard;
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) return false;
    ::close(file);
    return true;
}

// For the user alone: the configuration holds a private key.
bool OsCreateFolder(const char* path) { return ::mkdir(path, 0700) == 0 || errno == EEXIST; }

bool OsFinalPath(const char* path, char* target, std::size_t capacity) {
    char* found = ::realpath(path, nullptr);
    const bool fits = CopyPath(target, capacity, found != nullptr ? found : path, "");
    std::free(found);
    return fits;
}

bool OsReplaceFile(const char* from, const char* to) {
    if (!KeepOwner(from, to) || ::rename(from, to) != 0) return false;
    SyncFolderOf(to);
    return true;
}

bool OsRemoveFile(const char* path) { return std::remove(path) == 0; }

CreateFileResult OsAppendFileCreate(const char* path, OsAppendFile** file) {
    const StandardDescriptorsTaken standard;
    // All users share the temporary folder: never through a link, readable by the user alone.
    const int descriptor =
        ::open(path, O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        return errno == EEXIST ? CreateFileResult::kExists : CreateFileResult::kFailed;
    }
    *file = new (std::nothrow) OsAppendFile{descriptor};
    if (*file != nullptr) return CreateFileResult::kCreated;
    ::close(descriptor);
    return CreateFileResult::kFailed;
}

std::uint64_t OsAppendFileSize(OsAppendFile* file) {
    struct stat found;
    if (::fstat(file->descriptor, &found) != 0) return 0;
    return static_cast<std::uint64_t>(found.st_size);
}

std::size_t OsAppendFileReadAt(OsAppendFile* file, std::uint64_t offset, void* data,
                               std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(file->descriptor, static_cast<char*>(data) + done, size - done,
                                    static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

bool OsAppendFileTruncate(OsAppendFile* file, std::uint64_t size) {
    return ::ftruncate(file->descriptor, static_cast<off_t>(size)) == 0;
}

bool OsAppendFileWrite(OsAppendFile* file, const void* data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t put =
            ::write(file->descriptor, static_cast<const char*>(data) + done, size - done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        done += static_cast<std::size_t>(put);
    }
    return true;
}

bool OsAppendFileFlush(OsAppendFile* file) { return ::fdatasync(file->descriptor) == 0; }

void OsAppendFileClose(OsAppendFile* file) {
    if (file == nullptr) return;
    ::close(file->descriptor);
    delete file;
}

std::FILE* OsOpenStream(const char* path, const char* mode) {
    const StandardDescriptorsTaken standard;
    // Readable by the user alone: the configuration holds a private key.
    const int descriptor = ::open(path, OpenFlags(mode) | O_CLOEXEC, 0600);
    if (descriptor < 0) return nullptr;
    const bool usable = *mode != 'a' || IsOwnFileWithOneName(descriptor);
    std::FILE* stream = usable ? ::fdopen(descriptor, mode) : nullptr;
    if (stream == nullptr) ::close(descriptor);
    return stream;
}

}  // namespace tarvik
