// A logical link to one or several control units, from its creation to its end.

#ifndef TOOLS_DPDU_LINKS_LINK_H
#define TOOLS_DPDU_LINKS_LINK_H

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "links/bare_link.h"
#include "links/com_primitive.h"
#include "pdu/link_handles.h"
#include "uds/ecu_address.h"

namespace dpdu {

// What the user may say about a link.
struct LinkOptions {
    std::string protocol = "ISO_15765_3_on_ISO_15765_2";
    std::string bus_type = "ISO_11898_2_DWCAN";
    std::uint32_t p2_ms = 1000;                      // CP_P2Max
    std::optional<std::uint32_t> p2_star_ms;         // CP_P2Star
    std::optional<std::uint32_t> tester_present_ms;  // none: no tester present
    Bytes tester_present_message = {0x3E, 0x80};
    std::vector<std::pair<std::string, std::string>> params;  // ComParam name and its value's text
    std::chrono::seconds limit{60};  // for one request, whatever the control unit does
};

// Who is asked over a link.
struct LinkTargets {
    std::vector<EcuAddress> ecus;                // one entry each in the unique response table
    std::optional<std::uint32_t> functional_id;  // given: all are asked at once on this identifier
};

class Link {
public:
    // Creates a link to nobody: as the library makes it, offline. Throws Failure.
    Link(const ConnectedModule& module, const LinkOptions& options);
    // Creates a link, sets ComParams and unique response table, and connects it. Throws Failure.
    Link(const ConnectedModule& module, const LinkOptions& options, const LinkTargets& targets);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    const Session& GetSession() const { return *session_; }
    const LinkHandles& Handles() const { return bare_.Handles(); }

    // Also begins tester present, if there is to be one. Does nothing the second time.
    void StartCommunication();
    // The same without waiting: the ComPrimitive's handle, whose events stay in the link's queue.
    UNUM32 BeginCommunication();

    // Sends a request and gathers what comes back until the library has finished with it.
    // Communication is started before the first one.
    Exchange Request(const Bytes& request, const std::vector<ExpectedResponse>& expected);
    // The same request, not yet started.
    ComPrimitive RequestPrimitive(const Bytes& request,
                                  const std::vector<ExpectedResponse>& expected) const;

private:
    void SetTiming();
    void SetTesterPresent();
    void SetFunctionalAddress(std::uint32_t can_id);
    void StopCommunication() noexcept;

    LinkOptions options_;
    BareLink bare_;
    Session* session_;
    bool is_functional_ = false;
    bool is_started_ = false;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_LINKS_LINK_H
