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

// A link's settings that the user can choose.
struct LinkOptions {
    std::string protocol = "ISO_15765_3_on_ISO_15765_2";
    std::string bus_type = "ISO_11898_2_DWCAN";
    std::uint32_t p2_ms = 1000;                      // CP_P2Max
    std::optional<std::uint32_t> p2_star_ms;         // CP_P2Star
    std::optional<std::uint32_t> tester_present_ms;  // unset: no tester present
    Bytes tester_present_message = {0x3E, 0x80};
    std::vector<std::pair<std::string, std::string>> params;  // ComParam name and value
    // For one request, even if the control unit keeps it pending.
    std::chrono::milliseconds limit{60'000};
};

// The control units that a link talks to.
struct LinkTargets {
    std::vector<EcuAddress> ecus;                // one entry per unit in the unique response table
    std::optional<std::uint32_t> functional_id;  // set: request all at once on this identifier
};

class Link {
public:
    // Creates an offline link without targets, with the library's default values. Throws Failure.
    Link(const ConnectedModule& module, const LinkOptions& options);
    // Creates a link, sets ComParams and unique response table, and connects it. Throws Failure.
    Link(const ConnectedModule& module, const LinkOptions& options, const LinkTargets& targets);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    const Session& GetSession() const { return *session_; }
    const LinkHandles& Handles() const { return bare_.Handles(); }

    // Also starts tester present if configured. A second call does nothing.
    void StartCommunication();
    // As above without waiting; returns the ComPrimitive's handle. Its events stay in the link's
    // queue.
    UNUM32 BeginCommunication();

    // Sends a request and collects the answers until it is finished. Starts communication before
    // the first request.
    Exchange Request(const Bytes& request, const std::vector<ExpectedResponse>& expected);
    // For later requests.
    void SetLimit(std::chrono::milliseconds limit) { options_.limit = limit; }
    // The ComPrimitive for such a request, not yet started.
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
