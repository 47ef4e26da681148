// The part that all links share: creating, connecting and destroying.

#ifndef TOOLS_DPDU_LINKS_BARE_LINK_H
#define TOOLS_DPDU_LINKS_BARE_LINK_H

#include <string>

#include "pdu/link_handles.h"
#include "pdu/modules.h"
#include "pdu/session.h"

namespace dpdu {

struct LinkResource {
    std::string protocol;
    std::string bus_type;
    bool is_raw = false;  // CAN frames instead of requests and answers
};

// Offline at first, with its event callback registered for the session. Disconnected and destroyed
// at the end of the scope.
class BareLink {
public:
    // Throws Failure if the library refuses.
    BareLink(const ConnectedModule& module, const LinkResource& resource);
    ~BareLink();
    BareLink(const BareLink&) = delete;
    BareLink& operator=(const BareLink&) = delete;

    // Throws Failure if the library refuses.
    void Connect();

    Session* GetSession() const { return session_; }
    const LinkHandles& Handles() const { return handles_; }

private:
    Session* session_;
    LinkHandles handles_;
    bool is_connected_ = false;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_LINKS_BARE_LINK_H
