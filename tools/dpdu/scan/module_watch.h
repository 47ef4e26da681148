// Notices during a scan that the module was pulled out.

#ifndef TOOLS_DPDU_SCAN_MODULE_WATCH_H
#define TOOLS_DPDU_SCAN_MODULE_WATCH_H

#include <chrono>

#include "pdu/modules.h"

namespace dpdu {

// Looking for modules may take some 100 ms, so it is done only after some time of silence.
class ModuleWatch {
public:
    explicit ModuleWatch(const ConnectedModule& module)
        : session_(module.GetSession()), handle_(module.Handle()) {
        NoteSignOfLife();
    }

    void NoteSignOfLife();
    // Looks after some silence. Throws Failure if the module is gone or the user has interrupted
    // the program.
    void Check();
    // As above, without waiting for silence.
    void Look();

private:
    Session* session_;
    UNUM32 handle_;
    std::chrono::steady_clock::time_point next_look_{};
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_SCAN_MODULE_WATCH_H
