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

// True: standard output takes a text of this size without waiting for whoever reads it. False: it
// may wait, as a paused console does, or that cannot be known.
bool OsStandardOutputTakes(std::size_t size);

// Creates a console, unless the process has one, and reopens both output streams on it. On Linux
// they stay as they are.
void OsCreateConsole();

}  // namespace tarvik
