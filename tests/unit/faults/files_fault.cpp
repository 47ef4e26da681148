#include "unit/faults/files_fault.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

// The platform's source, with the functions below under other names. This object then defines all
// that the source does, so the linker takes nothing of it from the library.
#define OsTempPath SystemTempPath
#define OsLibraryFolder SystemLibraryFolder
#define OsUserDataFolder SystemUserDataFolder
#define OsOpenStream SystemOpenStream
#define OsAppendFileWrite SystemAppendFileWrite
#define OsAppendFileFlush SystemAppendFileFlush
#define OsReplaceFile SystemReplaceFile
#ifdef _WIN32
#include "platform/win32/files.cpp"
#else
#include "platform/posix/files.cpp"
#endif
#undef OsTempPath
#undef OsLibraryFolder
#undef OsUserDataFolder
#undef OsOpenStream
#undef OsAppendFileWrite
#undef OsAppendFileFlush
#undef OsReplaceFile

#include "path_text.h"
#include "platform/process.h"
#include "unit/test_system.h"

namespace fs = std::filesystem;

namespace tarvik {
namespace {

struct Folders {
    bool active = false;
    std::string temp;
    std::uint32_t temp_length = 0;
    std::string library;
    std::string user;
};
Folders folders;

std::string faulty_file;
test::FileFault::Kind file_fault = test::FileFault::Kind::kOpen;

bool Fails(test::FileFault::Kind kind) { return !faulty_file.empty() && file_fault == kind; }

bool CopyFolder(const std::string& folder, char* path, std::size_t capacity) {
    if (folder.empty() || folder.size() >= capacity) return false;
    std::memcpy(path, folder.c_str(), folder.size() + 1);
    return true;
}

}  // namespace

std::uint32_t OsTempPath(char* path, std::uint32_t capacity) {
    if (!folders.active) return SystemTempPath(path, capacity);
    CopyFolder(folders.temp, path, capacity);
    return folders.temp_length;
}

bool OsLibraryFolder(char* path, std::size_t capacity) {
    if (!folders.active) return SystemLibraryFolder(path, capacity);
    return CopyFolder(folders.library, path, capacity);
}

bool OsUserDataFolder(char* path, std::size_t capacity) {
    if (!folders.active) return SystemUserDataFolder(path, capacity);
    return CopyFolder(folders.user, path, capacity);
}

std::FILE* OsOpenStream(const char* path, const char* mode) {
    if (*mode != 'r' || faulty_file != path) return SystemOpenStream(path, mode);
    if (file_fault == test::FileFault::Kind::kOpen) return nullptr;
    return test::OpenUnreadable(folders.temp + "unreadable");
}

bool OsAppendFileWrite(OsAppendFile* file, const void* data, std::size_t size) {
    if (!Fails(test::FileFault::Kind::kWrite)) return SystemAppendFileWrite(file, data, size);
    SystemAppendFileWrite(file, data, size / 2);
    return false;
}

bool OsAppendFileFlush(OsAppendFile* file) {
    return !Fails(test::FileFault::Kind::kSync) && SystemAppendFileFlush(file);
}

bool OsReplaceFile(const char* from, const char* to) {
    return !Fails(test::FileFault::Kind::kReplace) && SystemReplaceFile(from, to);
}

namespace test {

TestFolders::TestFolders() {
    static int count = 0;
    root_ = fs::temp_directory_path() / PathOf("tarvik_" + std::to_string(OsProcessId()) + "_" +
                                               std::to_string(++count) + "_" + kForeignName);
    temp_ = root_ / "temp";
    library_ = root_ / "library";
    user_ = root_ / "user" / "data";
    fs::remove_all(root_);
    for (const fs::path& folder : {temp_, library_, user_}) {
        fs::create_directories(folder);
        fs::permissions(folder, fs::perms::all);
    }
    folders.active = true;
    folders.library = library_.make_preferred().string();
    folders.user = user_.make_preferred().string();
    temp_.make_preferred();
    const std::string temp = temp_.string() + kPathSeparator;
    ReportTempPath(temp, static_cast<std::uint32_t>(temp.size()));
}

TestFolders::~TestFolders() {
    folders = Folders();
    std::error_code still_open;  // a log file that is open cannot be removed everywhere
    fs::remove_all(root_, still_open);
}

void ReportTempPath(const std::string& path, std::uint32_t length) {
    folders.temp = path;
    folders.temp_length = length;
}

void HideUserFolder() { folders.user.clear(); }

void HideLibraryFolder() { folders.library.clear(); }

FileFault::FileFault(const fs::path& path, Kind kind) {
    faulty_file = path.string();
    file_fault = kind;
}

FileFault::~FileFault() { faulty_file.clear(); }

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

}  // namespace test
}  // namespace tarvik
