#include "unit/support/wrapped_platform.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <system_error>

#include "platform/files.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "unit/test_system.h"

namespace fs = std::filesystem;

namespace tarvik::test {
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
FileFault::Kind file_fault = FileFault::Kind::kOpen;

std::mutex debug_lock;
bool capturing = false;
std::string debug_text;

// The heap runs out for one thread, after `allocations_left` more of its allocations. No
// thread_local: where the compiler emulates it, it allocates.
std::atomic<std::uint32_t> starving_thread{0};
std::atomic<int> allocations_left{0};

bool CopyFolder(const std::string& folder, char* path, std::size_t capacity) {
    if (folder.empty() || folder.size() >= capacity) return false;
    std::memcpy(path, folder.c_str(), folder.size() + 1);
    return true;
}

}  // namespace

TestFolders::TestFolders() {
    static int count = 0;
    root_ = fs::temp_directory_path() /
            ("tarvik_support_" + std::to_string(OsProcessId()) + "_" + std::to_string(++count));
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

DebugOutputCapture::DebugOutputCapture() {
    const std::lock_guard guard(debug_lock);
    capturing = true;
    debug_text.clear();
}

DebugOutputCapture::~DebugOutputCapture() {
    const std::lock_guard guard(debug_lock);
    capturing = false;
}

std::string DebugOutputCapture::Text() const {
    const std::lock_guard guard(debug_lock);
    return debug_text;
}

ExhaustedHeap::ExhaustedHeap(int count) {
    allocations_left = count - 1;
    starving_thread = OsCurrentThreadId();
}

ExhaustedHeap::~ExhaustedHeap() { starving_thread = 0; }

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// --- what the linker puts in front of the library's own ---

#define TARVIK_WRAP(name) __asm__("__wrap_" name)
#define TARVIK_REAL(name) __asm__("__real_" name)

std::uint32_t RealTempPath(char*, std::uint32_t) TARVIK_REAL("_ZN6tarvik10OsTempPathEPcj");
std::uint32_t WrappedTempPath(char*, std::uint32_t) TARVIK_WRAP("_ZN6tarvik10OsTempPathEPcj");
bool RealLibraryFolder(char*, std::size_t)
    TARVIK_REAL("_ZN6tarvik15OsLibraryFolderEPc" TARVIK_SIZE_T_LETTER);
bool WrappedLibraryFolder(char*, std::size_t)
    TARVIK_WRAP("_ZN6tarvik15OsLibraryFolderEPc" TARVIK_SIZE_T_LETTER);
bool RealUserDataFolder(char*, std::size_t)
    TARVIK_REAL("_ZN6tarvik16OsUserDataFolderEPc" TARVIK_SIZE_T_LETTER);
bool WrappedUserDataFolder(char*, std::size_t)
    TARVIK_WRAP("_ZN6tarvik16OsUserDataFolderEPc" TARVIK_SIZE_T_LETTER);
std::FILE* RealOpenStream(const char*, const char*) TARVIK_REAL("_ZN6tarvik12OsOpenStreamEPKcS1_");
std::FILE* WrappedOpenStream(const char*, const char*)
    TARVIK_WRAP("_ZN6tarvik12OsOpenStreamEPKcS1_");
void RealDebugOutput(const char*) TARVIK_REAL("_ZN6tarvik13OsDebugOutputEPKc");
void WrappedDebugOutput(const char*) TARVIK_WRAP("_ZN6tarvik13OsDebugOutputEPKc");
void* RealMalloc(std::size_t) TARVIK_REAL("malloc");
void* WrappedMalloc(std::size_t) TARVIK_WRAP("malloc");

std::uint32_t WrappedTempPath(char* path, std::uint32_t capacity) {
    if (!folders.active) return RealTempPath(path, capacity);
    CopyFolder(folders.temp, path, capacity);
    return folders.temp_length;
}

bool WrappedLibraryFolder(char* path, std::size_t capacity) {
    if (!folders.active) return RealLibraryFolder(path, capacity);
    return CopyFolder(folders.library, path, capacity);
}

bool WrappedUserDataFolder(char* path, std::size_t capacity) {
    if (!folders.active) return RealUserDataFolder(path, capacity);
    return CopyFolder(folders.user, path, capacity);
}

std::FILE* WrappedOpenStream(const char* path, const char* mode) {
    if (*mode != 'r' || faulty_file != path) return RealOpenStream(path, mode);
    if (file_fault == FileFault::Kind::kOpen) return nullptr;
    return OpenUnreadable(folders.temp + "unreadable");
}

void WrappedDebugOutput(const char* text) {
    {
        const std::lock_guard guard(debug_lock);
        if (capturing) debug_text += text;
    }
    RealDebugOutput(text);
}

void* WrappedMalloc(std::size_t size) {
    if (starving_thread != 0 && starving_thread == OsCurrentThreadId()) {
        if (allocations_left == 0) return nullptr;
        --allocations_left;
    }
    return RealMalloc(size);
}

}  // namespace tarvik::test
