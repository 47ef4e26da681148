// A console that the library has created, in child processes: a process keeps its console.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/console.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

HANDLE OpenConsole(const wchar_t* end) {
    ::FreeConsole();
    OsCreateConsole();
    return ::CreateFileW(end, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_EXISTING, 0, nullptr);
}

const test::ChildBody kQuickEdit("quick-edit", [] {
    DWORD mode = 0;
    if (!::GetConsoleMode(OpenConsole(L"CONIN$"), &mode)) return 2;
    return (mode & ENABLE_QUICK_EDIT_MODE) == 0 ? 0 : 1;
});

TEST(CreatedConsole, IsNotPausedByAClick) { EXPECT_EQ(test::RunChild("quick-edit").exit_code, 0); }

const test::ChildBody kPrintUtf8("print-utf-8", [] {
    const HANDLE screen = OpenConsole(L"CONOUT$");
    const char text[] =
        "Stra\xC3\x9F"
        "e \xD0\x96\nnext";
    OsPrint(text, std::strlen(text));
    wchar_t rows[2][8] = {};
    DWORD read = 0;
    ::ReadConsoleOutputCharacterW(screen, rows[0], 8, {0, 0}, &read);
    ::ReadConsoleOutputCharacterW(screen, rows[1], 4, {0, 1}, &read);
    const bool shown =
        std::wstring(rows[0], 8) == L"Stra\u00DFe \u0416" && std::wstring(rows[1], 4) == L"next";
    return shown ? 0 : 1;
});

// Numbered lines, each from the beginning of its row, of a text that is longer than one write.
const test::ChildBody kPrintManyLines("print-many-lines", [] {
    const HANDLE screen = OpenConsole(L"CONOUT$");
    constexpr int kLines = 200;
    std::string text;
    for (int i = 0; i < kLines; ++i)
        text += std::to_string(1000 + i) + std::string(30, '.') + "\n";
    OsPrint(text.data(), text.size());
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!::GetConsoleScreenBufferInfo(screen, &info) || info.dwCursorPosition.X != 0) return 2;
    const int shown = std::min<int>(info.dwCursorPosition.Y, kLines);
    for (int back = 1; back <= shown; ++back) {
        wchar_t row[5] = {};
        DWORD read = 0;
        const auto y = static_cast<SHORT>(info.dwCursorPosition.Y - back);
        ::ReadConsoleOutputCharacterW(screen, row, 4, {0, y}, &read);
        if (row != std::to_wstring(1000 + kLines - back)) return 1;
    }
    return shown > 10 ? 0 : 3;
});

TEST(CreatedConsole, ShowsEachLineOfALongText) {
    EXPECT_EQ(test::RunChild("print-many-lines").exit_code, 0);
}

TEST(CreatedConsole, ShowsUtf8) { EXPECT_EQ(test::RunChild("print-utf-8").exit_code, 0); }

}  // namespace
}  // namespace tarvik
