#include <windows.h>

#include <array>

#include "console/line_input.h"
#include "console/terminal.h"
#include "text/wide_win32.h"

namespace dpdu {
namespace {

// Ctrl-C ends the reading; the handler that notes it runs on another thread.
void AwaitInterruption() {
    constexpr int kTries = 100;
    for (int i = 0; i < kTries && !WasInterrupted(); ++i)
        ::Sleep(10);
}

}  // namespace

// The console has all that is needed.
struct LineInput::System {
    HANDLE console = ::GetStdHandle(STD_INPUT_HANDLE);
};

LineInput::LineInput(Complete) : system_(std::make_unique<System>()) {}

LineInput::~LineInput() = default;

std::optional<std::string> LineInput::Read(const std::string& prompt) {
    WriteText(stderr, prompt);
    std::wstring line;
    while (!line.ends_with(L'\n')) {
        std::array<wchar_t, 1024> part{};
        DWORD count = 0;
        const BOOL is_read = ::ReadConsoleW(system_->console, part.data(),
                                            static_cast<DWORD>(part.size()), &count, nullptr);
        if (!is_read || count == 0) {
            if (::GetLastError() == ERROR_OPERATION_ABORTED) AwaitInterruption();
            return std::nullopt;
        }
        line.append(part.data(), count);
    }
    constexpr wchar_t kEndOfInput = 0x1A;  // Ctrl-Z
    if (line.front() == kEndOfInput) return std::nullopt;
    line.erase(line.find_last_not_of(L"\r\n") + 1);
    return FromWide(line);
}

}  // namespace dpdu
