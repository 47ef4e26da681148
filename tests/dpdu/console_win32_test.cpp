#include <gtest/gtest.h>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "console/terminal.h"
#include "text/wide_win32.h"
#include "unit/test_system.h"
#include "wide_text.h"

namespace {

std::vector<std::wstring>* recorded = nullptr;

BOOL AskForMode(HANDLE console, DWORD* mode) {
    return recorded != nullptr || ::GetConsoleMode(console, mode);
}

BOOL Write(HANDLE console, const void* text, DWORD size, DWORD* written, void* reserved) {
    if (recorded == nullptr) return ::WriteConsoleW(console, text, size, written, reserved);
    recorded->emplace_back(static_cast<const wchar_t*>(text), size);
    *written = size;
    return TRUE;
}

}  // namespace

// This object then defines all that the source does, so the linker does not take it from the
// client.
#define GetConsoleMode AskForMode
#define WriteConsoleW Write
#include "console/terminal_win32.cpp"
#undef GetConsoleMode
#undef WriteConsoleW

namespace dpdu {
namespace {

// While it lives, every stream is a console that shows nothing.
class RecordedWrites {
public:
    RecordedWrites() { recorded = &texts_; }
    ~RecordedWrites() { recorded = nullptr; }
    RecordedWrites(const RecordedWrites&) = delete;
    RecordedWrites& operator=(const RecordedWrites&) = delete;

    const std::vector<std::wstring>& Texts() const { return texts_; }

private:
    std::vector<std::wstring> texts_;
};

HANDLE OpenConsole() {
    return ::CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
}

// The first character of a console that was just made, after `text` was written to it.
wchar_t FirstCharacterAfter(const std::string& text) {
    const HANDLE console = OpenConsole();
    std::FILE* stream =
        ::_fdopen(::_open_osfhandle(reinterpret_cast<std::intptr_t>(console), _O_TEXT), "w");
    WriteText(stream, text);
    wchar_t first = L'\0';
    DWORD count = 0;
    ::ReadConsoleOutputCharacterW(console, &first, 1, {0, 0}, &count);
    std::fclose(stream);
    return first;
}

const tarvik::test::ChildBody kWriteToConsole("write-to-console", [] {
    return FirstCharacterAfter("Пётр\n") == L'П' ? 0 : 1;
});

// With a console of its own, which has no window.
DWORD ExitCodeOf(const std::string& child) {
    wchar_t program[MAX_PATH];
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command =
        L"\"" + std::wstring(program) + L"\" " + Wide(tarvik::test::kChildOption + child);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                          nullptr, nullptr, &startup, &process)) {
        return ::GetLastError();
    }
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return code;
}

TEST(Console, ShowsCharactersBeyondItsCodePage) { EXPECT_EQ(ExitCodeOf("write-to-console"), 0u); }

TEST(Console, LineFeedFollowsACarriageReturn) {
    EXPECT_EQ(WithCarriageReturns("one\ntwo\r\n\nthree"), "one\r\ntwo\r\n\r\nthree");
    EXPECT_EQ(WithCarriageReturns("\n"), "\r\n");
    EXPECT_EQ(WithCarriageReturns(""), "");
}

TEST(Console, PieceOfATextDividesNoCharacter) {
    const std::wstring text = Wide("a😀b");
    ASSERT_EQ(text.size(), 4u);
    EXPECT_EQ(WholeCharacters(text, 1), 1u);
    EXPECT_EQ(WholeCharacters(text, 2), 1u);
    EXPECT_EQ(WholeCharacters(text, 3), 3u);
    EXPECT_EQ(WholeCharacters(text, 4), 4u);
    EXPECT_EQ(WholeCharacters(text, 100), 4u);
}

TEST(Console, GetsWholeCharactersAndCarriageReturns) {
    std::string text = "one\n";  // and a line that ends between the halves of the last character
    text += std::string(8192 - 5 - 1, 'x') + "😀\n";
    const RecordedWrites writes;
    WriteText(stdout, text);
    ASSERT_EQ(writes.Texts().size(), 2u);
    EXPECT_EQ(writes.Texts()[0], L"one\r\n" + std::wstring(8192 - 5 - 1, L'x'));
    EXPECT_EQ(writes.Texts()[1], Wide("😀\r\n"));
}

}  // namespace
}  // namespace dpdu
