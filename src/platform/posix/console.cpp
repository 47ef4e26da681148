#include "platform/console.h"

#include <limits.h>
#include <stdio.h>
#include <stdio_ext.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <cwchar>

#include "platform/posix/descriptor_output.h"
#include "platform/posix/pipe_signal.h"

namespace tarvik {

ConsoleResult OsAttachConsole() {
    static std::atomic<bool> attached{false};
    return attached.exchange(true) ? ConsoleResult::kAlreadyThere : ConsoleResult::kAttached;
}

// Not by asking whether it is ready: it may be so for less than what is printed, and others print
// too.
bool OsStandardOutputMayWait() { return KindOf(::fileno(stdout)) == DescriptorKind::kTerminal; }

void OsCreateConsole() {}

namespace {

// Lines that a pipe or socket had no room for, and that nobody has been informed of.
std::atomic<unsigned> dropped_lines{0};

// Of a stream whose first `taken` characters were printed past it. Nothing is written here: the
// rest fits into its buffer, and has no end of a line if the stream is flushed at each.
void DropPrinted(std::size_t taken, std::size_t held) {
    char rest[PIPE_BUF];
    const std::size_t length = held - taken;
    std::memcpy(rest, stdout->_IO_write_base + taken, length);
    ::__fpurge(stdout);
    if (length > 0) ::fwrite_unlocked(rest, 1, length, stdout);
}

// What the application has printed comes first. Flushing its stream would wait where there is no
// room. A stream that another thread is using, or that has more than a pipe takes as a whole, is
// left to the application; so is one of wide characters, whose buffer has another form.
void PrintHeldTextAtOnce(int output, DescriptorKind kind) {
    if (::ftrylockfile(stdout) != 0) return;
    const std::size_t held = ::__fpending(stdout);
    if (held > 0 && held <= PIPE_BUF && std::fwide(stdout, 0) <= 0) {
        TextPieces text;
        text.Add(stdout->_IO_write_base, held);
        const ssize_t taken = WriteAtOnce(output, kind, &text);
        if (taken > 0) DropPrinted(static_cast<std::size_t>(taken), held);
    }
    ::funlockfile(stdout);
}

void PrintAtOnce(int output, DescriptorKind kind, const char* text, std::size_t length) {
    const unsigned dropped = dropped_lines.exchange(0);
    char notice[64];
    int notice_length = 0;
    if (dropped > 0) {
        notice_length = ::snprintf(notice, sizeof notice, "[Console] Lines dropped: %u\n", dropped);
    }
    TextPieces line;
    line.Add(notice, static_cast<std::size_t>(notice_length));
    line.Add(text, length);
    const ssize_t taken = WriteAtOnce(output, kind, &line);
    if (taken == static_cast<ssize_t>(line.Total())) return;
    dropped_lines += taken > notice_length ? 1 : dropped + 1;  // a long line may have been cut
}

}  // namespace

void OsPrint(const char* text, std::size_t length) {
    const PipeSignalHeld no_signal;
    const int output = ::fileno(stdout);
    const DescriptorKind kind = KindOf(output);
    if (kind == DescriptorKind::kClosed) return;
    if (NeverWaits(kind)) {
        PrintHeldTextAtOnce(output, kind);
        PrintAtOnce(output, kind, text, length);
    } else {
        ::fflush(stdout);
        WriteAll(output, text, length);
    }
}

}  // namespace tarvik
