#pragma once

// Services of the system that tests of this folder see through: folders of the test's own,
// debugger output that can be read, a heap that runs out.

#include <cstddef>
#include <filesystem>
#include <string>

namespace tarvik::test {

// While it lives the library finds its folders below a new, empty one.
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

// Each changes what the library is told until the next TestFolders.
void ReportTempPath(const std::string& path, std::uint32_t length);
void HideUserFolder();
void HideLibraryFolder();

// While it lives, streams for reading this file are refused, or opened but give a read error.
class FileFault {
public:
    enum class Kind { kOpen, kRead };
    FileFault(const std::filesystem::path& path, Kind kind);
    ~FileFault();
    FileFault(const FileFault&) = delete;
    FileFault& operator=(const FileFault&) = delete;
};

// What the library sends to the debugger while this object lives.
class DebugOutputCapture {
public:
    DebugOutputCapture();
    ~DebugOutputCapture();
    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;
    std::string Text() const;
};

// The `count`th allocation from now on finds the heap exhausted, as do those after it; ends with
// the object. The calling thread's alone, but the standard library's own as well.
class ExhaustedHeap {
public:
    explicit ExhaustedHeap(int count);
    ~ExhaustedHeap();
    ExhaustedHeap(const ExhaustedHeap&) = delete;
    ExhaustedHeap& operator=(const ExhaustedHeap&) = delete;
};

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& text);

}  // namespace tarvik::test
