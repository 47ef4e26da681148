#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

// Folders of the test's own, and files that cannot be read.
namespace tarvik::test {

// While it lives the library finds its folders below a new, empty one, whose name is beyond every
// ANSI code page.
class TestFolders {
public:
    TestFolders();
    ~TestFolders();
    TestFolders(const TestFolders&) = delete;
    TestFolders& operator=(const TestFolders&) = delete;

    const std::filesystem::path& Temp() const { return temp_; }
    const std::filesystem::path& Library() const { return library_; }
    const std::filesystem::path& User() const { return user_; }

private:
    std::filesystem::path root_;
    std::filesystem::path temp_;
    std::filesystem::path library_;
    std::filesystem::path user_;
};

// Each changes what the library gets until the next TestFolders.
void ReportTempPath(const std::string& path, std::uint32_t length);
void HideUserFolder();
void HideLibraryFolder();

// While it lives, this file cannot be opened for reading, reading from it fails, the second half of
// what is written beside it does not fit on the disk, that cannot be synced, or it cannot be
// replaced.
class FileFault {
public:
    enum class Kind { kOpen, kRead, kWrite, kSync, kReplace };
    FileFault(const std::filesystem::path& path, Kind kind);
    ~FileFault();
    FileFault(const FileFault&) = delete;
    FileFault& operator=(const FileFault&) = delete;
};

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& text);

}  // namespace tarvik::test
