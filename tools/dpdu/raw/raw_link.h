// A link that carries CAN frames.

#ifndef TOOLS_DPDU_RAW_RAW_LINK_H
#define TOOLS_DPDU_RAW_RAW_LINK_H

#include <functional>

#include "links/bare_link.h"
#include "links/link.h"
#include "raw/can_frame.h"

namespace dpdu {

// Link options with the protocol and bus type for raw links.
LinkOptions RawLinkOptions();

class RawLink {
public:
    // Creates the link, sets its ComParams and connects it. Throws Failure.
    RawLink(const ConnectedModule& module, const LinkOptions& options);

    // Passes a frame to the library with a ComPrimitive of this type: PDU_COPT_STARTCOMM (as
    // Tarvik's library needs it) or PDU_COPT_SENDRECV. Throws Failure.
    void Send(const CanFrame& frame, T_PDU_COPT type);
    // Waits until the library has processed all frames passed to it. Throws Failure.
    void FinishSending();

    // Starts reception, which lasts until the link is destroyed. Throws Failure.
    void StartListening();
    // Passes all received frames to `look`, each with its time stamp in microseconds. Throws
    // Failure if the library has reported an error.
    void TakeFrames(const std::function<void(const CanFrame&, UNUM32)>& look);

private:
    BareLink bare_;
    Session* session_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_RAW_LINK_H
