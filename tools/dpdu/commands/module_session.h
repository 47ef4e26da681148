// The library and module that most commands use.

#ifndef TOOLS_DPDU_COMMANDS_MODULE_SESSION_H
#define TOOLS_DPDU_COMMANDS_MODULE_SESSION_H

#include "commands/commands.h"
#include "pdu/modules.h"
#include "pdu/session.h"

namespace dpdu {

// A constructed library with the one module chosen by the options, connected.
class ModuleSession {
public:
    explicit ModuleSession(const CommonOptions& common);

    Session* GetSession() { return &session_; }
    const ModuleInfo& Info() const { return info_; }
    const ConnectedModule& Module() const { return module_; }

private:
    Session session_;
    ModuleInfo info_;
    ConnectedModule module_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_MODULE_SESSION_H
