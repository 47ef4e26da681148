// Who can change an installed file.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "check/file_rights.h"
#include "process.h"

namespace {

namespace fs = std::filesystem;
using dpdu::check::OtherWriter;

// A file in a folder, both only for their owner.
class FileRights : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(folder_);
        std::ofstream(file_) << "x";
        ASSERT_TRUE(SetMode(folder_, 0755) && SetMode(file_, 0644));
    }
    void TearDown() override { fs::remove_all(folder_); }
    static bool SetMode(const fs::path& path, mode_t mode) {
        return chmod(path.c_str(), mode) == 0;
    }

    const fs::path folder_ =
        fs::canonical(testing::TempDir()) / ("dpdu_rights_" + std::to_string(OwnProcessId()));
    const fs::path file_ = folder_ / "library.so";
};

TEST_F(FileRights, FileOfAUserIsThatUsers) {
    const bool is_given_away = geteuid() != 0 || chown(file_.c_str(), 12345, 0) == 0;
    ASSERT_TRUE(is_given_away);
    const auto writer = OtherWriter(file_);
    ASSERT_TRUE(writer);
    EXPECT_EQ(writer->path, file_);
    EXPECT_TRUE(writer->who.starts_with("the user ")) << writer->who;
}

TEST_F(FileRights, FileThatDoesNotExistHasNoWriter) { EXPECT_FALSE(OtherWriter(folder_ / "none")); }

// Files of root, which only root can make.
class FileRightsOfRoot : public FileRights {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only root can make files of root";
        FileRights::SetUp();
    }
};

TEST_F(FileRightsOfRoot, FileThatOnlyRootCanChangeHasNoWriter) { EXPECT_FALSE(OtherWriter(file_)); }

TEST_F(FileRightsOfRoot, FileThatOthersMayWriteIsTheirs) {
    ASSERT_TRUE(SetMode(file_, 0646));
    EXPECT_EQ(OtherWriter(file_)->who, "every user");
    ASSERT_TRUE(SetMode(file_, 0664));
    EXPECT_FALSE(OtherWriter(file_)) << "its group is root's";
    ASSERT_EQ(chown(file_.c_str(), 0, 12345), 0);
    EXPECT_EQ(OtherWriter(file_)->who, "the group 12345");
}

TEST_F(FileRightsOfRoot, FileInAFolderThatOthersMayWriteIsTheirs) {
    ASSERT_TRUE(SetMode(folder_, 0777));
    const auto writer = OtherWriter(file_);
    ASSERT_TRUE(writer);
    EXPECT_EQ(writer->path, folder_);
    EXPECT_EQ(writer->who, "every user");
    ASSERT_TRUE(SetMode(folder_, 01777));
    EXPECT_FALSE(OtherWriter(file_)) << "only owners replace files there";
}

TEST_F(FileRightsOfRoot, LinkThatOthersMayReplaceIsTheirs) {
    const fs::path open = folder_ / "open";
    fs::create_directories(open);
    ASSERT_TRUE(SetMode(open, 0777));
    fs::create_symlink(file_, open / "link");
    EXPECT_FALSE(OtherWriter(file_));
    const auto writer = OtherWriter(open / "link");
    ASSERT_TRUE(writer);
    EXPECT_EQ(writer->path, open);
}

TEST_F(FileRightsOfRoot, LinkIsFollowed) {
    ASSERT_TRUE(SetMode(file_, 0646));
    const fs::path link = folder_ / "link";
    fs::create_symlink(file_, link);
    EXPECT_EQ(OtherWriter(link)->path, file_);
}

}  // namespace
