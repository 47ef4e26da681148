// The modules that a library offers: listing, choosing, connecting.

#ifndef TOOLS_DPDU_PDU_MODULES_H
#define TOOLS_DPDU_PDU_MODULES_H

#include <chrono>
#include <string>
#include <vector>

#include "pdu/session.h"

namespace dpdu {

struct ModuleInfo {
    UNUM32 handle = PDU_HANDLE_UNDEF;
    UNUM32 type = 0;
    T_PDU_STATUS state = PDU_MODST_NOT_AVAIL;
    std::string vendor_name;      // as the library gives it
    std::string additional_info;  // likewise
    // Taken from vendor_name where it is a series of key='value', else empty.
    std::string name;
    std::string serial_number;
    std::string connection;
};

// The value of a key in a series of key='value', or an empty text.
std::string VendorValue(const std::string& series, const std::string& key);

// All modules as the library knows them now.
std::vector<ModuleInfo> ListModules(Session* session);

// True when the library says that a module which it listed is not there any more. Libraries may
// find that out only when they look for modules, so ListModules goes before.
bool IsModuleGone(Session* session, UNUM32 handle);

// True when the module's texts contain the wanted one, whatever the case; an empty one always.
bool ModuleMatches(const ModuleInfo& module, const std::string& wanted);

// Looks for modules until at least one matches or the time is over, and returns those that match.
std::vector<ModuleInfo> WaitForModules(Session* session, const std::string& wanted,
                                       std::chrono::milliseconds limit);

// The one module that matches and is available; throws Failure when there is none or more than one.
ModuleInfo ChooseModule(Session* session, const std::string& wanted,
                        std::chrono::milliseconds limit);

// Connects a module for as long as it lives.
class ConnectedModule {
public:
    ConnectedModule(Session* session, UNUM32 handle);
    ~ConnectedModule();
    ConnectedModule(const ConnectedModule&) = delete;
    ConnectedModule& operator=(const ConnectedModule&) = delete;

    Session* GetSession() const { return session_; }
    UNUM32 Handle() const { return handle_; }

private:
    Session* session_;
    UNUM32 handle_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_MODULES_H
