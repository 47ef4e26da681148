#include "api/library_entry.h"

#include "link/fragmentation.h"
#include "platform/thread.h"
#include "support/console_output.h"
#include "support/log.h"
#include "transport/transport_table.h"

namespace tarvik {

void OnLibraryLoad() {
    RegisterTransports();
    FragInit();
}

void OnLibraryUnload() {
    EndConsoleOutput();
    ConsolePrint("%s", kDetachLine);
    FragDeinit();
    OsEndThreads();
}

}  // namespace tarvik
