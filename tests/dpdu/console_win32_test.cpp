#include <gtest/gtest.h>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>

#include "console/terminal.h"
#include "unit/test_system.h"
#include "wide_text.h"

namespace dpdu {
namespace {

// The first character of a console that was just made, after `text` was written to it.
wchar_t FirstCharacterAfter(const std::string& text) {
    const HANDLE console =
        ::CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                      nullptr, OPEN_EXISTING, 0, nullptr);
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

}  // namespace
}  // namespace dpdu
