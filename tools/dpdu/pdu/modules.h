// The modules of a library: listing, choosing, connecting.

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
    std::string vendor_name;      // as reported by the library
    std::string additional_info;  // as reported by the library
    // Parsed from vendor_name if it is a series of key='value', else empty.
    std::string name;
    std::string serial_number;
    std::string connection;
};

// The value of a key in a series of key='value', or an empty text if it is missing.
std::string VendorValue(const std::string& series, const std::string& key);

// All modules that the library currently knows.
std::vector<ModuleInfo> ListModules(Session* session);

inline constexpr char kModuleGone[] = "the module is gone";

// True if the library reports that a listed module is no longer available. Some libraries notice
// that only while they look for modules, so call ListModules before.
bool IsModuleGone(Session* session, UNUM32 handle);

// True if the module's texts contain `wanted`, ignoring case; an empty text always matches.
bool ModuleMatches(const ModuleInfo& module, const std::string& wanted);

// Looks for modules until at least one matches or the time is up, and returns the matching ones.
std::vector<ModuleInfo> WaitForModules(Session* session, const std::string& wanted,
                                       std::chrono::milliseconds limit);

// The one module that matches and is available. Throws Failure if there is none or more than one.
ModuleInfo ChooseModule(Session* session, const std::string& wanted,
                        std::chrono::milliseconds limit);

// Keeps a module connected during its lifetime.
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
