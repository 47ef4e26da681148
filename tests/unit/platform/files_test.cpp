#include "platform/files.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "path_text.h"
#include "platform/process.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
protected:
    Files() {
        folder_ = fs::temp_directory_path() / ("tarvik_files_" + std::to_string(OsProcessId()));
        fs::remove_all(folder_);
        fs::create_directory(folder_);
        fs::permissions(folder_, fs::perms::all);
    }
    ~Files() override { fs::remove_all(folder_); }

    std::string Path(const char* name) const { return (folder_ / name).string(); }
    static void Write(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }
    static std::string Read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    fs::path folder_;
};

TEST_F(Files, TempPathEndsInASeparatorAndReportsItsLength) {
    char path[kMaxPath];
    const std::uint32_t length = OsTempPath(path, sizeof path);
    ASSERT_GT(length, 0u);
    ASSERT_LT(length, sizeof path);
    EXPECT_EQ(length, std::strlen(path));
    EXPECT_EQ(path[length - 1], kPathSeparator);
    EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(Files, TempPathThatDoesNotFitReportsMoreThanTheCapacity) {
    char path[2];
    EXPECT_GT(OsTempPath(path, sizeof path), sizeof path);
}

TEST_F(Files, TempPathBeyondTheCodePageIsUtf8) {
    const std::string folder = TextOf(folder_ / PathOf(kForeignName));
    const test::TemporaryFolderVariable variable(folder);
    char path[kMaxPath];
    ASSERT_GT(OsTempPath(path, sizeof path), 0u);
    EXPECT_EQ(path, folder + kPathSeparator);
}

TEST_F(Files, TempPathOf259CharactersFitsAndALongerOneIsTooLong) {
    std::string folder = TextOf(folder_);
    while (PathOf(folder).native().size() < 258)
        folder += folder.size() % 50 == 0 ? kPathSeparator : 'x';
    char path[kMaxPath];
    {
        const test::TemporaryFolderVariable variable(folder);
        EXPECT_EQ(OsTempPath(path, sizeof path), 259u);
    }
    const test::TemporaryFolderVariable variable(folder + "x");
    const std::uint32_t length = OsTempPath(path, sizeof path);
    EXPECT_TRUE(length == 0 || length >= sizeof path) << length;
}

TEST_F(Files, FallbackTempPathEndsInASeparator) {
    const std::string path = OsFallbackTempPath();
    EXPECT_EQ(path.back(), kPathSeparator);
}

TEST_F(Files, UserDataFolderHasNoTrailingSeparator) {
    char path[kMaxPath];
    ASSERT_TRUE(OsUserDataFolder(path, sizeof path));
    ASSERT_GT(std::strlen(path), 1u);
    EXPECT_NE(path[std::strlen(path) - 1], kPathSeparator);
    char small[2];
    EXPECT_FALSE(OsUserDataFolder(small, sizeof small));
}

TEST_F(Files, LibraryFolderHoldsTheFileWithThisCode) {
    char path[kMaxPath];
    ASSERT_TRUE(OsLibraryFolder(path, sizeof path));
    EXPECT_NE(path[std::strlen(path) - 1], kPathSeparator);
    const std::string program = path + std::string(1, kPathSeparator) + "platform_test";
    EXPECT_TRUE(OsFileExists(program.c_str()) || OsFileExists((program + ".exe").c_str()));
    char small[2];
    EXPECT_FALSE(OsLibraryFolder(small, sizeof small));
}

TEST_F(Files, FolderIsNotAFile) {
    EXPECT_FALSE(OsFileExists(Path("missing").c_str()));
    EXPECT_FALSE(OsFileExists(folder_.string().c_str()));
    Write(Path("there"), "");
    EXPECT_TRUE(OsFileExists(Path("there").c_str()));
}

TEST_F(Files, WritableOnlyIfItExistsAndMayBeWritten) {
    EXPECT_FALSE(OsFileWritable(Path("missing").c_str()));
    EXPECT_FALSE(OsFileExists(Path("missing").c_str()));  // the test creates nothing
    Write(Path("file"), "text");
    EXPECT_TRUE(OsFileWritable(Path("file").c_str()));
    EXPECT_EQ(Read(Path("file")), "text");
    const auto protection = test::ProtectFromWriting(Path("file"));
    EXPECT_FALSE(OsFileWritable(Path("file").c_str()));
}

TEST_F(Files, ExistingFolderCountsAsCreated) {
    EXPECT_TRUE(OsCreateFolder(Path("new").c_str()));
    EXPECT_TRUE(fs::is_directory(Path("new")));
    EXPECT_TRUE(OsCreateFolder(Path("new").c_str()));
    EXPECT_FALSE(OsCreateFolder((Path("no") + kPathSeparator + "parent").c_str()));
}

TEST_F(Files, ExistingAppendFileIsNotOpened) {
    Write(Path("old"), "old");
    OsAppendFile* file = nullptr;
    EXPECT_EQ(OsAppendFileCreate(Path("old").c_str(), &file), CreateFileResult::kExists);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(Read(Path("old")), "old");
}

TEST_F(Files, AppendFileInAMissingFolderFails) {
    OsAppendFile* file = nullptr;
    const std::string path = Path("no") + kPathSeparator + "file";
    EXPECT_EQ(OsAppendFileCreate(path.c_str(), &file), CreateFileResult::kFailed);
}

TEST_F(Files, AppendFileWritesReadsAndTruncates) {
    OsAppendFile* file = nullptr;
    ASSERT_EQ(OsAppendFileCreate(Path("new").c_str(), &file), CreateFileResult::kCreated);
    EXPECT_EQ(OsAppendFileSize(file), 0u);
    EXPECT_TRUE(OsAppendFileWrite(file, "first\nsecond", 12));
    EXPECT_TRUE(OsAppendFileFlush(file));
    EXPECT_EQ(Read(Path("new")), "first\nsecond");  // readable while it is open
    EXPECT_EQ(OsAppendFileSize(file), 12u);
    char text[16] = {};
    EXPECT_EQ(OsAppendFileReadAt(file, 6, text, sizeof text), 6u);
    EXPECT_STREQ(text, "second");
    EXPECT_EQ(OsAppendFileReadAt(file, 0, text, 2), 2u);
    EXPECT_TRUE(OsAppendFileWrite(file, "!", 1));  // at the end, not where it was read
    EXPECT_TRUE(OsAppendFileTruncate(file, 6));
    EXPECT_TRUE(OsAppendFileWrite(file, "third\n", 6));
    OsAppendFileClose(file);
    EXPECT_EQ(Read(Path("new")), "first\nthird\n");
}

TEST_F(Files, AppendFileIsSharedForReadingAndWriting) {
    OsAppendFile* file = nullptr;
    ASSERT_EQ(OsAppendFileCreate(Path("new").c_str(), &file), CreateFileResult::kCreated);
    EXPECT_TRUE(OsFileWritable(Path("new").c_str()));
    OsAppendFileClose(file);
}

TEST_F(Files, ReplacingTakesTheNameOfTheOldFile) {
    Write(Path("new"), "new");
    EXPECT_TRUE(OsReplaceFile(Path("new").c_str(), Path("config").c_str()));
    EXPECT_EQ(Read(Path("config")), "new");
    Write(Path("newer"), "newer");
    EXPECT_TRUE(OsReplaceFile(Path("newer").c_str(), Path("config").c_str()));
    EXPECT_EQ(Read(Path("config")), "newer");
    EXPECT_FALSE(fs::exists(Path("newer")));
    EXPECT_FALSE(OsReplaceFile(Path("missing").c_str(), Path("config").c_str()));
    EXPECT_EQ(Read(Path("config")), "newer");
}

TEST_F(Files, NamesBeyondTheCodePageAreKept) {
    const fs::path folder = folder_ / PathOf(kForeignName);
    const std::string first = TextOf(folder / PathOf(kForeignName));
    const std::string second = first + "2";
    ASSERT_TRUE(OsCreateFolder(TextOf(folder).c_str()));
    OsAppendFile* file = nullptr;
    ASSERT_EQ(OsAppendFileCreate(first.c_str(), &file), CreateFileResult::kCreated);
    OsAppendFileClose(file);
    EXPECT_TRUE(fs::exists(folder / PathOf(kForeignName)));
    EXPECT_TRUE(OsFileExists(first.c_str()));
    EXPECT_TRUE(OsFileWritable(first.c_str()));
    std::FILE* stream = OsOpenStream(first.c_str(), "a+b");
    ASSERT_NE(stream, nullptr);
    std::fclose(stream);
    EXPECT_TRUE(OsReplaceFile(first.c_str(), second.c_str()));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
    EXPECT_TRUE(fs::exists(folder / PathOf(kForeignName + std::string("2"))));
    EXPECT_TRUE(OsRemoveFile(second.c_str()));
    EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(Files, RemovingAMissingFileFails) { EXPECT_FALSE(OsRemoveFile(Path("missing").c_str())); }

TEST_F(Files, StreamModesAreThoseOfFopen) {
    EXPECT_EQ(OsOpenStream(Path("stream").c_str(), "rb"), nullptr);
    std::FILE* stream = OsOpenStream(Path("stream").c_str(), "a+b");
    ASSERT_NE(stream, nullptr);
    std::fputs("one\n", stream);
    std::fclose(stream);
    stream = OsOpenStream(Path("stream").c_str(), "a+b");
    std::fputs("two\n", stream);
    std::fclose(stream);
    EXPECT_EQ(Read(Path("stream")), "one\ntwo\n");
    stream = OsOpenStream(Path("stream").c_str(), "wb");
    std::fclose(stream);
    EXPECT_EQ(Read(Path("stream")), "");
}

TEST_F(Files, AppendingToAFileWithASecondNameIsRefused) {
    Write(Path("file"), "somebody's");
    fs::create_hard_link(Path("file"), Path("log"));
    EXPECT_EQ(OsOpenStream(Path("log").c_str(), "a+b"), nullptr);
    fs::remove(Path("file"));
    std::FILE* stream = OsOpenStream(Path("log").c_str(), "a+b");
    ASSERT_NE(stream, nullptr);
    std::fclose(stream);
    EXPECT_EQ(Read(Path("log")), "somebody's");
}

}  // namespace
}  // namespace tarvik
