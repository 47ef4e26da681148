#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "pdu_functions.h"

namespace tarvik::bench {

// An application: constructs the library, connects the simulated dongle, opens links and requests a
// control unit's VIN on them. It drains a link's events in the link's callback and wakes the
// requesting thread when the ComPrimitive is finished. Any failure ends the program.
class PduSession {
public:
    PduSession(const PduFunctions& pdu, std::size_t links);
    ~PduSession();
    PduSession(const PduSession&) = delete;
    PduSession& operator=(const PduSession&) = delete;

    // A control unit with its CAN identifiers.
    struct Unit {
        std::uint32_t request;
        std::uint32_t response;
    };
    // From now on requests on this link go to all of these at once.
    void AskUnits(std::size_t link, const std::vector<Unit>& units);

    // Opens another link, for raw CAN frames. ListenRaw enables reception; SendRaw queues a frame
    // of eight bytes; AwaitRaw waits until this many frames have been received since its last call,
    // false on time-out.
    void OpenRawLink();
    void ListenRaw(std::size_t link);
    void SendRaw(std::size_t link, std::uint32_t can_id);
    bool AwaitRaw(std::size_t link, std::size_t count);

    // Executes one request on this link. False if an answer is missing or wrong.
    bool Ask(std::size_t link);
    // Returns the duration of PDUDestruct. Nothing else may be called afterwards.
    double DestructMs();

private:
    struct Link;

    void ConnectModule();
    void SetNumber(const char* name, std::uint32_t value);
    void OpenLink(PDU_FLAG_DATA* flag = nullptr);
    std::uint32_t ObjectId(T_PDU_OBJT type, const char* name);

    static void PDU_CALL OnEvent(T_PDU_EVT_DATA type, UNUM32 hMod, UNUM32 hCLL, void* link,
                                 void* session);
    void Drain(Link* link);

    const PduFunctions pdu_;
    UNUM32 hMod_ = PDU_HANDLE_UNDEF;
    std::vector<std::unique_ptr<Link>> links_;
    bool constructed_ = false;
};

}  // namespace tarvik::bench
