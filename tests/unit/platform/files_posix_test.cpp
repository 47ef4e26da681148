#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/process.h"
#include "unit/faults/system_call_fault.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using test::SystemCallFault;

// Sets a variable for the length of a scope; null removes it.
class Variable {
public:
    Variable(const char* name, const char* value) : name_(name) {
        const char* before = std::getenv(name);
        if (before != nullptr) before_ = before;
        test::SetVariable(name, value);
    }
    ~Variable() { test::SetVariable(name_, before_ ? before_->c_str() : nullptr); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name_;
    std::optional<std::string> before_;
};

class PosixFiles : public testing::Test {
protected:
    PosixFiles()
        : folder_(fs::temp_directory_path() / ("tarvik_modes_" + std::to_string(OsProcessId()))) {
        fs::remove_all(folder_);
        fs::create_directory(folder_);
    }
    ~PosixFiles() override { fs::remove_all(folder_); }

    std::string Path(const char* name) const { return (folder_ / name).string(); }
    bool Opens(const char* name, const char* mode) const {
        std::FILE* stream = OsOpenStream(Path(name).c_str(), mode);
        if (stream != nullptr) std::fclose(stream);
        return stream != nullptr;
    }
    void Write(const char* name, const std::string& text) const {
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    std::string Read(const char* name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Whether "new" takes the place of "config" while this function fails.
    bool ReplacesWhile(const char* function, int error, int failures = SystemCallFault::kAlways) {
        Write("new", "new");
        const std::string from = Path("new");
        const std::string to = Path("config");
        const SystemCallFault fault(function, error, failures);
        return OsReplaceFile(from.c_str(), to.c_str());
    }
    fs::perms ModeOf(const char* name) const { return fs::status(Path(name)).permissions(); }

    fs::path folder_;
};

constexpr fs::perms kUserAlone = fs::perms::owner_read | fs::perms::owner_write;

TEST_F(PosixFiles, NewStreamIsForTheUserAlone) {
    ASSERT_TRUE(Opens("log", "a+b"));
    EXPECT_EQ(ModeOf("log"), kUserAlone);
    ASSERT_TRUE(Opens("config", "w"));
    EXPECT_EQ(ModeOf("config"), kUserAlone);
}

TEST_F(PosixFiles, ExistingStreamKeepsItsMode) {
    ASSERT_TRUE(Opens("config", "w"));
    fs::permissions(Path("config"), kUserAlone | fs::perms::group_read);
    ASSERT_TRUE(Opens("config", "w"));
    EXPECT_EQ(ModeOf("config"), kUserAlone | fs::perms::group_read);
}

TEST_F(PosixFiles, AppendingThroughALinkIsRefused) {
    ASSERT_TRUE(Opens("target", "w"));
    fs::create_symlink(Path("target"), Path("link"));
    EXPECT_FALSE(Opens("link", "a+b"));
    EXPECT_TRUE(Opens("link", "rb"));
    EXPECT_TRUE(Opens("link", "w"));
    fs::create_symlink(Path("missing"), Path("dangling"));
    EXPECT_FALSE(Opens("dangling", "a+b"));
    EXPECT_FALSE(fs::exists(Path("missing")));
}

TEST_F(PosixFiles, AppendingToAFifoIsRefusedWithoutBlocking) {
    for (const mode_t mode : {0600u, 0200u, 0666u}) {
        ASSERT_EQ(::mkfifo(Path("fifo").c_str(), mode), 0);
        EXPECT_FALSE(Opens("fifo", "a+b"));
        EXPECT_FALSE(Opens("fifo", "ab"));
        fs::remove(Path("fifo"));
    }
}

TEST_F(PosixFiles, FifoCountsAsAnExistingTraceFile) {
    ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0666), 0);
    OsAppendFile* file = nullptr;
    EXPECT_EQ(OsAppendFileCreate(Path("fifo").c_str(), &file), CreateFileResult::kExists);
}

TEST_F(PosixFiles, AppendingToAnotherUsersFileIsRefused) {
    ASSERT_TRUE(Opens("log", "a+b"));
    fs::permissions(Path("log"), fs::perms::all);
    const bool is_root = ::chown(Path("log").c_str(), 65534, 65534) == 0;
    EXPECT_EQ(Opens("log", "a+b"), !is_root);
}

TEST_F(PosixFiles, ReplacedFileIsForTheUserAloneAndKeepsItsOwner) {
    constexpr uid_t kOther = 65534;
    ASSERT_TRUE(Opens("config", "w"));
    fs::permissions(Path("config"), fs::perms::all);
    const bool is_root = ::chown(Path("config").c_str(), kOther, kOther) == 0;
    OsAppendFile* file = nullptr;
    ASSERT_EQ(OsAppendFileCreate(Path("new").c_str(), &file), CreateFileResult::kCreated);
    OsAppendFileClose(file);
    EXPECT_TRUE(OsReplaceFile(Path("new").c_str(), Path("config").c_str()));
    struct stat replaced;
    ASSERT_EQ(::stat(Path("config").c_str(), &replaced), 0);
    EXPECT_EQ(replaced.st_mode & 0777, 0600u);
    EXPECT_EQ(replaced.st_uid, is_root ? kOther : ::getuid());
    EXPECT_FALSE(fs::exists(Path("new")));
}

TEST_F(PosixFiles, FinalPathFollowsLinks) {
    ASSERT_TRUE(Opens("target", "w"));
    fs::create_symlink(Path("target"), Path("link"));
    char path[kMaxPath];
    ASSERT_TRUE(OsFinalPath(Path("link").c_str(), path, sizeof path));
    EXPECT_TRUE(fs::equivalent(path, Path("target")));
    EXPECT_FALSE(fs::is_symlink(path));
    ASSERT_TRUE(OsFinalPath(Path("missing").c_str(), path, sizeof path));
    EXPECT_EQ(path, Path("missing"));
    EXPECT_FALSE(OsFinalPath(Path("target").c_str(), path, 2));
}

TEST_F(PosixFiles, NothingIsReplacedIfTheOldOwnerIsUnknown) {
    Write("config", "old");
    EXPECT_FALSE(ReplacesWhile("stat", EACCES, 1));  // of the old file
    EXPECT_EQ(Read("config"), "old");
    EXPECT_FALSE(OsReplaceFile(Path("missing").c_str(), Path("config").c_str()));
    EXPECT_EQ(Read("config"), "old");
}

// Only the system's administrator may give files away.
TEST_F(PosixFiles, NothingIsReplacedIfTheOldOwnerCannotBeKept) {
    Write("config", "old");
    if (::chown(Path("config").c_str(), 65534, 65534) != 0) return;
    EXPECT_FALSE(ReplacesWhile("chown", EPERM));
    EXPECT_EQ(Read("config"), "old");
    EXPECT_TRUE(ReplacesWhile("chown", EPERM, 0));
    EXPECT_EQ(Read("config"), "new");
}

TEST_F(PosixFiles, ReplacedFileNeedNotHaveItsNameOnDisk) {
    Write("config", "old");
    EXPECT_TRUE(ReplacesWhile("open", EMFILE));  // of the folder
    EXPECT_EQ(Read("config"), "new");
}

TEST_F(PosixFiles, FileOfTheCurrentFolderIsReplaced) {
    const fs::path before = fs::current_path();
    fs::current_path(folder_);
    Write("new", "new");
    const bool replaced = OsReplaceFile("new", "config");
    fs::current_path(before);
    EXPECT_TRUE(replaced);
    EXPECT_EQ(Read("config"), "new");
}

TEST_F(PosixFiles, FileWithALongPathIsReplaced) {
    const std::string name(200, 'n');
    fs::create_directory(folder_ / name);
    const std::string from = Path((name + "/new").c_str());
    const std::string to = Path((name + "/" + name).c_str());
    ASSERT_GT(to.size(), kMaxPath);
    std::ofstream(from) << "new";
    EXPECT_TRUE(OsReplaceFile(from.c_str(), to.c_str()));
    EXPECT_TRUE(fs::exists(to));
}

TEST_F(PosixFiles, TempPathIsThatOfTheEnvironmentWithASeparator) {
    char path[kMaxPath];
    {
        const Variable set("TMPDIR", "/var/tmp");
        EXPECT_EQ(OsTempPath(path, sizeof path), 9u);
        EXPECT_STREQ(path, "/var/tmp/");
    }
    const Variable set("TMPDIR", "/var/tmp/");
    EXPECT_EQ(OsTempPath(path, sizeof path), 9u);
    EXPECT_STREQ(path, "/var/tmp/");
}

TEST_F(PosixFiles, TempPathIsTmpWithoutOneInTheEnvironment) {
    for (const char* value : {static_cast<const char*>(nullptr), ""}) {
        const Variable set("TMPDIR", value);
        char path[kMaxPath];
        EXPECT_EQ(OsTempPath(path, sizeof path), 5u);
        EXPECT_STREQ(path, "/tmp/");
    }
}

TEST_F(PosixFiles, UserDataFolderIsThatOfTheEnvironmentIfAbsolute) {
    const Variable home("HOME", "/home/someone");
    char path[kMaxPath];
    {
        const Variable config("XDG_CONFIG_HOME", "/etc/someone");
        EXPECT_TRUE(OsUserDataFolder(path, sizeof path));
        EXPECT_STREQ(path, "/etc/someone");
    }
    for (const char* value : {static_cast<const char*>(nullptr), "", "relative/folder"}) {
        const Variable config("XDG_CONFIG_HOME", value);
        EXPECT_TRUE(OsUserDataFolder(path, sizeof path));
        EXPECT_STREQ(path, "/home/someone/.config");
    }
}

TEST_F(PosixFiles, UserDataFolderIsUnknownWithoutAHome) {
    const Variable config("XDG_CONFIG_HOME", nullptr);
    for (const char* value : {static_cast<const char*>(nullptr), ""}) {
        const Variable home("HOME", value);
        char path[kMaxPath];
        EXPECT_FALSE(OsUserDataFolder(path, sizeof path));
    }
}

TEST_F(PosixFiles, LibraryFolderIsUnknownIfTheSystemDoesNotSay) {
    bool known = true;
    {
        const SystemCallFault fault("open", EMFILE);
        char path[kMaxPath];
        known = OsLibraryFolder(path, sizeof path);
    }
    EXPECT_FALSE(known);
}

// The descriptor that was opened for it is not lost.
TEST_F(PosixFiles, AppendFileWithoutMemoryFails) {
    const std::string path = Path("new");
    OsAppendFile* file = nullptr;
    CreateFileResult result = CreateFileResult::kCreated;
    const int next = ::dup(STDOUT_FILENO);
    ::close(next);
    {
        const test::NoMemory none;
        result = OsAppendFileCreate(path.c_str(), &file);
    }
    EXPECT_EQ(result, CreateFileResult::kFailed);
    EXPECT_EQ(file, nullptr);
    const int still_next = ::dup(STDOUT_FILENO);
    ::close(still_next);
    EXPECT_EQ(still_next, next);
    OsAppendFileClose(nullptr);  // allowed
}

// An append file of eleven bytes.
class PosixAppendFile : public PosixFiles {
protected:
    PosixAppendFile() {
        EXPECT_EQ(OsAppendFileCreate(Path("new").c_str(), &file_), CreateFileResult::kCreated);
        EXPECT_TRUE(OsAppendFileWrite(file_, "hello world", 11));
    }
    ~PosixAppendFile() override { OsAppendFileClose(file_); }

    std::string ReadWhile(int error, int failures = SystemCallFault::kAlways) {
        char text[16] = {};
        const SystemCallFault fault("pread", error, failures);
        const std::size_t size = OsAppendFileReadAt(file_, 0, text, sizeof text);
        return {text, size};
    }
    bool WritesWhile(int error, int failures = SystemCallFault::kAlways) {
        const SystemCallFault fault("write", error, failures);
        return OsAppendFileWrite(file_, " again", 6);
    }

    OsAppendFile* file_ = nullptr;
};

TEST_F(PosixAppendFile, ReadingGoesOnAfterASignalAndAfterAPart) {
    EXPECT_EQ(ReadWhile(EINTR, 2), "hello world");
    EXPECT_EQ(ReadWhile(SystemCallFault::kOneByte), "hello world");
}

TEST_F(PosixAppendFile, ReadingEndsAtAnError) { EXPECT_EQ(ReadWhile(EIO), ""); }

TEST_F(PosixAppendFile, WritingGoesOnAfterASignalAndAfterAPart) {
    EXPECT_TRUE(WritesWhile(EINTR, 2));
    EXPECT_EQ(Read("new"), "hello world again");
    EXPECT_TRUE(WritesWhile(SystemCallFault::kOneByte));
    EXPECT_EQ(Read("new"), "hello world again again");
}

TEST_F(PosixAppendFile, WritingToAFullDiskFails) { EXPECT_FALSE(WritesWhile(ENOSPC)); }

TEST_F(PosixAppendFile, SizeIsNoneIfTheSystemDoesNotSay) {
    EXPECT_EQ(OsAppendFileSize(file_), 11u);
    std::uint64_t size = 1;
    {
        const SystemCallFault fault("fstat", EIO);
        size = OsAppendFileSize(file_);
    }
    EXPECT_EQ(size, 0u);
}

TEST_F(PosixFiles, StreamsForUpdatesReadAndWrite) {
    for (const char* mode : {"r+b", "w+b", "a+b"}) {
        Write("stream", "old");
        std::FILE* stream = OsOpenStream(Path("stream").c_str(), mode);
        ASSERT_NE(stream, nullptr) << mode;
        EXPECT_EQ(std::fputs("new", stream), 1) << mode;
        std::rewind(stream);
        EXPECT_NE(std::fgetc(stream), EOF) << mode;
        std::fclose(stream);
    }
    EXPECT_EQ(Read("stream"), "oldnew");
}

// The descriptor that was opened for it is not lost.
TEST_F(PosixFiles, StreamThatTheSystemRefusesIsClosed) {
    const std::string path = Path("stream");
    const int next = ::dup(STDOUT_FILENO);
    ::close(next);
    std::FILE* stream = nullptr;
    {
        const SystemCallFault fault("fdopen", ENOMEM);
        stream = OsOpenStream(path.c_str(), "wb");
    }
    EXPECT_EQ(stream, nullptr);
    {
        const SystemCallFault fault("fstat", EIO);
        stream = OsOpenStream(path.c_str(), "ab");
    }
    EXPECT_EQ(stream, nullptr);
    const int still_next = ::dup(STDOUT_FILENO);
    ::close(still_next);
    EXPECT_EQ(still_next, next);
}

}  // namespace
}  // namespace tarvik
