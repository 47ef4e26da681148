#include "console/terminal.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <string_view>

#include "text/wide_win32.h"

namespace dpdu {
namespace {

constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;
constexpr DWORD kTimeToReleaseMs = 5000;  // Windows ends the process after this time

std::atomic<bool> interrupted{false};

// Runs on a separate thread.
BOOL WINAPI OnInterruption(DWORD event) {
    const bool was_interrupted = interrupted.exchange(true);
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) return was_interrupted ? FALSE : TRUE;
    // Windows ends the process when this returns. Give the main thread time to release everything;
    // it ends the process when done.
    ::Sleep(kTimeToReleaseMs);
    return TRUE;
}

void PointStandardOutputAt(int descriptor) {
    ::_dup2(descriptor, kStandardOutput);
    // A library with its own C runtime uses the handle, not our descriptor.
    ::SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(::_get_osfhandle(kStandardOutput)));
}

}  // namespace

std::FILE* TakeStandardOutput(LibraryLines lines) {
    std::fflush(stdout);
    const int real = ::_dup(kStandardOutput);
    if (real < 0) return nullptr;

    if (lines == LibraryLines::kToStandardError) {
        PointStandardOutputAt(kStandardError);
    } else if (const int nowhere = ::_open("NUL", _O_WRONLY | _O_NOINHERIT); nowhere >= 0) {
        PointStandardOutputAt(nowhere);
        ::_close(nowhere);
    }
    return ::_fdopen(real, "w");
}

int PipeStandardOutput() {
    constexpr unsigned kRoom = 65536;
    int ends[2] = {-1, -1};
    if (::_pipe(ends, kRoom, _O_BINARY | _O_NOINHERIT) != 0) return -1;
    PointStandardOutputAt(ends[1]);
    ::_close(ends[1]);
    return ends[0];
}

int ReadDescriptor(int descriptor, char* buffer, unsigned size) {
    return ::_read(descriptor, buffer, size);
}

void WriteText(std::FILE* stream, const std::string& text) {
    const auto handle = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stream)));
    DWORD mode = 0;
    if (!::GetConsoleMode(handle, &mode)) {
        std::fwrite(text.data(), 1, text.size(), stream);
        return;
    }
    std::fflush(stream);
    // Older consoles take at most some 64 KiB in one call.
    constexpr std::size_t kMost = 8192;
    // The console may leave carriages where they are, in a mode that another program has chosen.
    const std::wstring wide = ToWide(WithCarriageReturns(text));
    std::wstring_view rest = wide;
    while (!rest.empty()) {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(WholeCharacters(rest, kMost));
        ::WriteConsoleW(handle, rest.data(), size, &written, nullptr);
        if (written == 0) return;
        rest.remove_prefix(written);
    }
}

// The C runtime has no number of its own for ERROR_NO_DATA and makes EINVAL of it.
void UseBinaryMode(std::FILE* stream) {
    std::fflush(stream);
    ::_setmode(::_fileno(stream), _O_BINARY);
}

bool MeansReaderGone(int error) { return error == EPIPE || error == EINVAL; }

bool IsTerminal(std::FILE* stream) {
    DWORD mode = 0;
    return ::GetConsoleMode(reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stream))), &mode) !=
           FALSE;
}

bool StandardErrorIsTerminal() { return ::_isatty(kStandardError) != 0; }

// NUL, too, is a character device.
bool StandardInputIsTerminal() {
    DWORD mode = 0;
    return ::GetConsoleMode(::GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

TerminalSize SizeOfTerminal(std::FILE* stream) {
    const auto handle = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stream)));
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    if (!::GetConsoleScreenBufferInfo(handle, &info)) return {};
    return {info.srWindow.Right - info.srWindow.Left + 1,
            info.srWindow.Bottom - info.srWindow.Top + 1};
}

bool ShowsEscapes(std::FILE* stream) {
    const HANDLE console = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stream)));
    DWORD mode = 0;
    return ::GetConsoleMode(console, &mode) != 0 &&
           ::SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

void CatchInterruptions() { ::SetConsoleCtrlHandler(OnInterruption, TRUE); }

bool WasInterrupted() { return interrupted.load(); }

unsigned long OwnProcessId() { return ::GetCurrentProcessId(); }

bool IsProcessRunning(unsigned long id) {
    const HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, id);
    if (!process) return ::GetLastError() != ERROR_INVALID_PARAMETER;
    // One that has ended is still there while somebody has a handle of it.
    const bool has_ended = ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
    ::CloseHandle(process);
    return !has_ended;
}

}  // namespace dpdu
