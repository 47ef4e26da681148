// Standard streams and interruption of the process; one implementation per operating system.

#ifndef TOOLS_DPDU_CONSOLE_TERMINAL_H
#define TOOLS_DPDU_CONSOLE_TERMINAL_H

#include <cstdio>
#include <string>

namespace dpdu {

// Where to send lines that the library itself prints to standard output.
enum class LibraryLines { kDiscarded, kToStandardError };

// Returns a stream to the real standard output and redirects the process's standard output, so that
// lines printed by the library do not mix with the results. Call it before the library is loaded.
// Null if there is no standard output; the caller closes the stream.
std::FILE* TakeStandardOutput(LibraryLines lines);

// After that: makes standard output a pipe, and returns the descriptor to read from; negative if
// there is none to be had.
int PipeStandardOutput();
// Waits for something to read. How much it is; 0 at the end, negative after an error.
int ReadDescriptor(int descriptor, char* buffer, unsigned size);

// Writes text, which is UTF-8. On Windows a console shows it whatever its code page is; files and
// pipes get it as it is.
void WriteText(std::FILE* stream, const std::string& text);

// What is written from now on reaches files and pipes byte by byte, line ends included.
void UseBinaryMode(std::FILE* stream);

// True for the errno of a failed write if it may mean that nobody reads the pipe any more.
bool MeansReaderGone(int error);

bool IsTerminal(std::FILE* stream);
bool StandardErrorIsTerminal();
bool StandardInputIsTerminal();

// Of the terminal as it is now; zeros if the stream is not a terminal.
struct TerminalSize {
    int columns = 0;
    int lines = 0;
    bool operator==(const TerminalSize&) const = default;
};
TerminalSize SizeOfTerminal(std::FILE* stream);

// True if the stream is a terminal that understands escape sequences; enables them if necessary.
bool ShowsEscapes(std::FILE* stream);

// From now on an interruption by the user (Ctrl-C, a request to terminate) only sets a flag, so
// that links and modules are released first. A second one ends the process at once. Writing to a
// pipe without a reader becomes an ordinary write error.
void CatchInterruptions();

bool WasInterrupted();

unsigned long OwnProcessId();

// True also if the system does not say.
bool IsProcessRunning(unsigned long id);

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_TERMINAL_H
