#include "platform/console.h"

#include <io.h>
#include <windows.h>

#include <cstdio>

namespace tarvik {

namespace {

// A stream that cannot be reopened stays closed: there is nothing to print to then.
void ReopenOutputStreams() {
    if (std::freopen("CONOUT$", "w", stdout) != nullptr) std::setvbuf(stdout, nullptr, _IONBF, 0);
    if (std::freopen("CONOUT$", "w", stderr) != nullptr) std::setvbuf(stderr, nullptr, _IONBF, 0);
}

bool HasConsoleOutput() {
    const HANDLE output =
        ::CreateFileA("CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                      nullptr, OPEN_EXISTING, 0, nullptr);
    if (output == INVALID_HANDLE_VALUE) return false;
    ::CloseHandle(output);
    return true;
}

// Also makes a line feed return the carriage.
void EnableEscapeSequences() {
    constexpr DWORD kVirtualTerminalProcessing = 0x4;
    constexpr DWORD kDisableNewlineAutoReturn = 0x8;
    const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (!::GetConsoleMode(output, &mode)) return;
    ::SetConsoleMode(output, (mode | kVirtualTerminalProcessing) & ~kDisableNewlineAutoReturn);
}

}  // namespace

ConsoleResult OsAttachConsole() {
    if (::GetConsoleWindow() != nullptr) return ConsoleResult::kAlreadyThere;
    if (!::AttachConsole(ATTACH_PARENT_PROCESS) && !::AllocConsole()) return ConsoleResult::kNone;
    if (std::freopen("CONIN$", "r", stdin) == nullptr) std::clearerr(stdin);
    ReopenOutputStreams();
    EnableEscapeSequences();
    return ConsoleResult::kAttached;
}

bool OsStandardOutputMayWait() {
    const auto output = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stdout)));
    DWORD mode = 0;
    return ::GetFileType(output) == FILE_TYPE_PIPE || ::GetConsoleMode(output, &mode) != 0;
}

void OsPrint(const char* text, std::size_t length) {
    std::fwrite(text, 1, length, stdout);
    std::fflush(stdout);  // shown at once, even if the output is a pipe
}

void OsCreateConsole() {
    ::AllocConsole();
    if (HasConsoleOutput()) ReopenOutputStreams();
}

}  // namespace tarvik
