#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/files.h"
#include "platform/process.h"

namespace tarvik {
namespace {

namespace fs = std::filesystem;

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

}  // namespace
}  // namespace tarvik
