#pragma once

#include <cstddef>

namespace tarvik {

enum class ConsoleResult : unsigned char {
    kAlreadyThere,  // the process has a console window; nothing was changed
    kAttached,      // the parent's console, or a new one; the standard streams are on it
    kNone,          // neither is available
};

// Gives the process a console: attach to the parent's, else create one; standard streams are
// reopened on it, both output streams unbuffered, escape sequences enabled. On Linux the console
// is the process's own standard output: the streams stay as they are, and only the first call
// counts as attaching.
ConsoleResult OsAttachConsole();

// Whether printing may have to wait for whoever reads standard output: a terminal or a pipe, not a
// file. On Linux a pipe does not wait either: it takes a line at once, or the line is dropped. On
// Windows the question itself waits while another thread writes to a pipe that was not asked
// before; a replaced output with the old handle's number counts as the old one until the next
// OsPrint.
bool OsStandardOutputMayWait();

// Writes the text to standard output in one piece.
void OsPrint(const char* text, std::size_t length);

// Creates a console, unless the process has one, and reopens both output streams on it. On Linux
// they stay as they are.
void OsCreateConsole();

}  // namespace tarvik
