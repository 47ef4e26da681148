// A console that the library has created, in child processes: a process keeps its console.

#include <gtest/gtest.h>
#include <windows.h>

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

TEST(CreatedConsole, ShowsUtf8) { EXPECT_EQ(test::RunChild("print-utf-8").exit_code, 0); }

}  // namespace
}  // namespace tarvik
