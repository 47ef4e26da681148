// Ending a command when the user interrupts the program.

#ifndef TOOLS_DPDU_CONSOLE_INTERRUPTION_H
#define TOOLS_DPDU_CONSOLE_INTERRUPTION_H

#include "console/failure.h"
#include "console/terminal.h"

namespace dpdu {

// Throws Failure when the user has interrupted the program.
inline void ThrowIfInterrupted() {
    if (WasInterrupted()) throw Failure("interrupted", ExitCode::kInterrupted);
}

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_INTERRUPTION_H
