// A link that carries whole CAN frames.

#ifndef TOOLS_DPDU_RAW_RAW_LINK_H
#define TOOLS_DPDU_RAW_RAW_LINK_H

#include <functional>

#include "links/bare_link.h"
#include "links/link.h"
#include "raw/can_frame.h"

namespace dpdu {

// The link options' protocol and bus type for raw links.
LinkOptions RawLinkOptions();

class RawLink {
public:
    // Creates the link, sets its ComParams and connects it. Throws Failure.
    RawLink(const ConnectedModule& module, const LinkOptions& options);

    // Hands a frame to the library with a ComPrimitive of this type: PDU_COPT_STARTCOMM, by which
    // Tarvik's library sends, or PDU_COPT_SENDRECV. Throws Failure.
    void Send(const CanFrame& frame, T_PDU_COPT type);
    // Waits until the library has worked on everything that was handed to it. Throws Failure.
    void FinishSending();

    // From now on frames are received, until the link is gone. Throws Failure.
    void StartListening();
    // Shows the frames that have come, each with its time stamp in microseconds. Throws Failure
    // when the library has reported an error.
    void TakeFrames(const std::function<void(const CanFrame&, UNUM32)>& look);

private:
    BareLink bare_;
    Session* session_;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_RAW_RAW_LINK_H
