// Who can change an installed file.

#include <gtest/gtest.h>
#include <windows.h>
// Other headers need windows.h before them.
#include <aclapi.h>
#include <sddl.h>

#include <filesystem>
#include <fstream>

#include "check/file_rights.h"
#include "path_text.h"
#include "process.h"

namespace {

namespace fs = std::filesystem;
using dpdu::check::OtherWriter;

TEST(FileRights, FileThatEveryoneMayWriteHasAWriter) {
    const fs::path file = fs::canonical(PathOf(testing::TempDir())) /
                          ("dpdu_rights_" + std::to_string(OwnProcessId()));
    std::ofstream(file) << "x";
    PSECURITY_DESCRIPTOR rights = nullptr;
    ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(
        L"D:P(A;;FA;;;WD)", SDDL_REVISION_1, &rights, nullptr));
    EXPECT_TRUE(::SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, rights));
    ::LocalFree(rights);
    const auto writer = OtherWriter(TextOf(file));
    EXPECT_TRUE(writer && PathOf(writer->path) == file && !writer->who.empty());
    fs::remove(file);
}

TEST(FileRights, FileThatDoesNotExistHasNoWriter) {
    EXPECT_FALSE(OtherWriter("C:/no such folder/none"));
}

}  // namespace
