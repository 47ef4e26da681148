#include "platform/win32/utf16.h"

#include <gtest/gtest.h>

#include <string>

#include "path_text.h"
#include "platform/files.h"
#include "platform/user.h"
#include "unit/test_system.h"
#include "wide_text.h"

namespace tarvik {
namespace {

std::string Repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST(Utf16, PathIsConvertedBothWays) {
    const WidePath wide(kForeignName);
    EXPECT_EQ(wide.Get(), Wide(kForeignName));
    char text[kMaxPath];
    EXPECT_EQ(ToUtf8(wide.Get(), text, sizeof text), sizeof kForeignName);
    EXPECT_STREQ(text, kForeignName);
}

TEST(Utf16, PathOf259CharactersFitsAndALongerOneIsEmpty) {
    const std::string longest = Repeated("山", 259);
    EXPECT_EQ(WidePath(longest.c_str()).Get(), Wide(longest));
    EXPECT_TRUE(WidePath((longest + "x").c_str()).IsEmpty());
    char text[kMaxPath];
    EXPECT_EQ(ToUtf8(Wide(longest).c_str(), text, sizeof text), kMaxPath);
    EXPECT_EQ(ToUtf8(Wide(longest).c_str(), text, sizeof text - 1), 0u);
}

TEST(Utf16, PathThatIsNotUtf8IsEmptyButATextToShowIsNot) {
    EXPECT_TRUE(WidePath("caf\xE9").IsEmpty());
    EXPECT_EQ(ShownText<16>("caf\xE9").Get(), std::wstring(L"caf\xFFFD"));
    EXPECT_TRUE(ShownText<4>("four").IsEmpty());
}

TEST(Utf16, EmptyTextIsWholeButOneWithoutRoomIsNot) {
    EXPECT_TRUE(ShownText<4>("").IsWhole());
    EXPECT_TRUE(ShownText<4>("for").IsWhole());
    EXPECT_FALSE(ShownText<4>("four").IsWhole());
    EXPECT_FALSE(WidePath("caf\xE9").IsWhole());
}

TEST(Utf16, HalfOfASurrogatePairIsRefused) {
    char text[16];
    EXPECT_EQ(ToUtf8(L"\xD83D", text, sizeof text), 0u);
}

TEST(Utf16, FileNameThatIsNotUtf8IsOfNoFile) {
    char folder[kMaxPath];
    ASSERT_GT(OsTempPath(folder, sizeof folder), 0u);
    const std::string path = std::string(folder) + "caf\xE9";
    OsAppendFile* file = nullptr;
    EXPECT_EQ(OsAppendFileCreate(path.c_str(), &file), CreateFileResult::kFailed);
    EXPECT_EQ(OsOpenStream(path.c_str(), "wb"), nullptr);
    EXPECT_FALSE(OsCreateFolder(path.c_str()));
    EXPECT_FALSE(OsFileExists(path.c_str()));
    EXPECT_FALSE(OsRemoveFile(path.c_str()));
}

// Wine takes the name from this variable.
TEST(User, NameBeyondTheCodePageIsUtf8) {
    wchar_t before[257];
    DWORD size = 257;
    ASSERT_TRUE(::GetUserNameW(before, &size));
    test::SetVariable("WINEUSERNAME", kForeignName);
    char name[256 * 3 + 1];
    EXPECT_TRUE(OsUserName(name, sizeof name));
    EXPECT_STREQ(name, kForeignName);
    test::SetVariable("WINEUSERNAME", Narrow(before).c_str());
}

}  // namespace
}  // namespace tarvik
