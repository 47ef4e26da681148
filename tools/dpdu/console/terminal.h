// The process's own streams and interruption; one implementation per operating system.

#ifndef TOOLS_DPDU_CONSOLE_TERMINAL_H
#define TOOLS_DPDU_CONSOLE_TERMINAL_H

#include <cstdio>

namespace dpdu {

// Where the lines go that a library prints to standard output on its own.
enum class LibraryLines { kDiscarded, kToStandardError };

// Returns a stream to the real standard output and points the process's standard output elsewhere,
// so that a library which prints there cannot get between the answers. Call it before the library
// is loaded. Null when there is no standard output; the stream is the caller's to close.
std::FILE* TakeStandardOutput(LibraryLines lines);

bool StandardErrorIsTerminal();

// The columns of the terminal behind the stream; 0 when it is none.
int TerminalColumns(std::FILE* stream);

// True when the stream is a terminal that follows escape sequences, which are switched on if need
// be.
bool ShowsEscapes(std::FILE* stream);

// From now on an interruption by the user (Ctrl-C, a request to terminate) only sets a flag, so
// that links and modules are released first. A second interruption ends the process at once.
// Output into a pipe that nobody reads any more becomes an ordinary write error.
void CatchInterruptions();

bool WasInterrupted();

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_TERMINAL_H
