#include "platform/console.h"

#include <io.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "platform/win32/process_end.h"

namespace tarvik {

namespace {

// Its file number may be that of another file since.
std::atomic<bool> output_is_closed{false};

// A stream that cannot be reopened stays closed: there is nothing to print to then.
void ReopenOutputStreams() {
    output_is_closed = std::freopen("CONOUT$", "w", stdout) == nullptr;
    if (!output_is_closed) std::setvbuf(stdout, nullptr, _IONBF, 0);
    if (std::freopen("CONOUT$", "w", stderr) != nullptr) std::setvbuf(stderr, nullptr, _IONBF, 0);
}

HANDLE OpenConsole(const wchar_t* end) {
    return ::CreateFileW(end, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_EXISTING, 0, nullptr);
}

bool HasConsoleOutput() {
    const HANDLE output = OpenConsole(L"CONOUT$");
    if (output == INVALID_HANDLE_VALUE) return false;
    ::CloseHandle(output);
    return true;
}

// Otherwise a click into the window pauses every thread that prints.
void DisableQuickEdit() {
    const HANDLE input = OpenConsole(L"CONIN$");
    if (input == INVALID_HANDLE_VALUE) return;
    DWORD mode = 0;
    if (::GetConsoleMode(input, &mode)) {
        ::SetConsoleMode(input, (mode | ENABLE_EXTENDED_FLAGS) & ~DWORD{ENABLE_QUICK_EDIT_MODE});
    }
    ::CloseHandle(input);
}

// A console that the application has or shares keeps its settings.
bool CreateOwnConsole() {
    if (!::AllocConsole()) return false;
    DisableQuickEdit();
    return true;
}

// Waits for no lock.
HANDLE StandardOutput() {
    if (output_is_closed || ::_fileno(stdout) < 0) return INVALID_HANDLE_VALUE;
    return reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stdout)));
}

// The output that was found to be a pipe or a device. A pipe cannot be asked for its type while any
// thread writes to it.
std::atomic<HANDLE> waiting_output{INVALID_HANDLE_VALUE};

bool MayWait(DWORD type) { return type == FILE_TYPE_PIPE || type == FILE_TYPE_CHAR; }

DWORD AskForType(HANDLE output) {
    const DWORD type = ::GetFileType(output);
    if (MayWait(type)) {
        waiting_output = output;
    } else if (waiting_output == output) {  // the number is that of a file now
        waiting_output = INVALID_HANDLE_VALUE;
    }
    return type;
}

// A console, or another device. A console's mode cannot be asked for: a stream's handle is for
// writing only.
bool IsDevice(HANDLE output) { return AskForType(output) == FILE_TYPE_CHAR; }

constexpr std::size_t kPiece = 4096;
constexpr std::size_t kPieceLines = 64;

bool BeginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

// The text's first piece: at most kPiece bytes, kPieceLines lines, whole UTF-8 characters.
std::size_t PieceLength(const char* text, std::size_t length) {
    const std::size_t room = std::min(length, kPiece);
    std::size_t end = 0;
    for (std::size_t lines = 0; end < room && lines < kPieceLines; ++end)
        lines += text[end] == '\n';
    if (end < kPiece || end == length) return end;
    while (end > kPiece - 3 && !BeginsCharacter(text[end]))
        --end;
    return end;
}

// A line feed also returns the carriage, as on text streams. The result may be in the same buffer
// as the text, if it begins earlier by a character for each line.
template <typename Character>
std::size_t ReturnCarriages(const Character* text, std::size_t length, Character* returned) {
    Character* end = returned;
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] == '\n') *end++ = '\r';
        *end++ = text[i];
    }
    return static_cast<std::size_t>(end - returned);
}

// False: it is no console, and nothing was printed.
bool PrintOnConsole(HANDLE console, const char* text, std::size_t length) {
    wchar_t returned[kPieceLines + kPiece];
    wchar_t* const wide = returned + kPieceLines;
    const char* const begin = text;
    while (length > 0) {
        const std::size_t piece = PieceLength(text, length);
        const int count =
            ::MultiByteToWideChar(CP_UTF8, 0, text, static_cast<int>(piece), wide, kPiece);
        const std::size_t size = ReturnCarriages(wide, static_cast<std::size_t>(count), returned);
        DWORD written = 0;
        if (!::WriteConsoleW(console, returned, static_cast<DWORD>(size), &written, nullptr)) {
            return text != begin;
        }
        text += piece;
        length -= piece;
    }
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
    if (!::AttachConsole(ATTACH_PARENT_PROCESS) && !CreateOwnConsole()) return ConsoleResult::kNone;
    if (std::freopen("CONIN$", "r", stdin) == nullptr) std::clearerr(stdin);
    ReopenOutputStreams();
    EnableEscapeSequences();
    return ConsoleResult::kAttached;
}

bool OsStandardOutputMayWait() {
    const HANDLE output = StandardOutput();
    if (output == INVALID_HANDLE_VALUE) return false;
    return output == waiting_output || MayWait(AskForType(output));
}

// Not through the stream: an unbuffered one writes in several pieces, and the C runtime may write
// single characters to a console.
void OsPrint(const char* text, std::size_t length) {
    std::fflush(stdout);  // what the application has printed comes first
    const HANDLE output = StandardOutput();
    if (output == INVALID_HANDLE_VALUE) return;
    if (IsDevice(output) && PrintOnConsole(output, text, length)) return;
    ::_write(::_fileno(stdout), text, static_cast<unsigned>(length));
}

void PrintAtProcessEnd(std::string_view text) {
    const HANDLE output = StandardOutput();
    char returned[1024];
    if (output == INVALID_HANDLE_VALUE || text.size() > sizeof returned / 2) return;
    DWORD written = 0;
    const std::size_t size = ReturnCarriages(text.data(), text.size(), returned);
    ::WriteFile(output, returned, static_cast<DWORD>(size), &written, nullptr);
}

void OsCreateConsole() {
    CreateOwnConsole();
    if (HasConsoleOutput()) ReopenOutputStreams();
}

}  // namespace tarvik
