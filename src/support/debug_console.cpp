#include "support/debug_console.h"

#include "platform/console.h"
#include "support/log.h"

namespace tarvik {

void OpenDebugConsole() {
    if (OsAttachConsole() != ConsoleResult::kAttached) return;
    ConsolePrint("-----------------------\n");
    ConsolePrint(" Debug console enabled\n");
    ConsolePrint("-----------------------\n");
}

}  // namespace tarvik
