#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"

// The secure channel to the cloud relay: identity, handshake, sealing, identification. It knows no
// carrier: what it sends goes to the tail of the transmit queue, what it waits for comes out of the
// receive queue, and the threads that serve the queues run all the while. One channel a process.
//
// A connection attempt runs, on the connection thread and in this order:
//
//     CloudSecClearSession();
//     CloudSecLoadIdentity() && CloudSecHandshake(queues, abort) &&
//         CloudSecIdentify(queues, &status, abort)
//
// and CloudSecClearSession() again when one of them failed or the connection has ended. The
// transmit thread passes every packet that it takes through CloudSecSeal; the receive thread
// passes every CRYP to CloudSecOpen while CloudSecEstablished().
//
// Every function logs its own failures and returns false; the caller adds its own line, if any.
namespace tarvik {

struct CloudSecSession;  // secure_channel_state.h; nobody but the channel looks inside
extern CloudSecSession& cloud_session;

// DEVA's answer to the identification. Any other value is accepted like kRegistered.
inline constexpr std::uint32_t kDeviceRegistered = 0;
inline constexpr std::uint32_t kDeviceIsolated = 1;
inline constexpr std::uint32_t kDeviceRejected = 2;

// Seeds the random generator, once a process; tries again after a failure. CloudSecLoadIdentity
// calls it. Connection thread only, as the generator has no lock.
bool CloudSecInitRng();

// The identity's public key from its private key. Connection thread only.
bool CloudSecDerivePublicKey();

// Reads both keys from `config`, as PDUConstruct has read it. Makes a key pair when the
// configuration holds none or one that is no scalar of the curve, puts it into
// config.devicePrivateKey and writes the file. Connection thread only, before the handshake.
bool CloudSecLoadIdentity();

// Sends NHS1, waits up to 1000 ms for NHS2, installs the session: from the return of true on,
// everything that passes CloudSecSeal is sealed. `queues` must be available. Takes an NHS2 that is
// in the receive queue already, so that of an earlier connection must have gone by then. Ends
// within 100 ms, as if the time had run out, once *abort is set; it may be null.
bool CloudSecHandshake(DeviceQueues* queues, const std::atomic<bool>* abort = nullptr);

// Sends DEVI and waits up to 1000 ms for DEVA, after the handshake and under the same rules. True
// with every status; the caller decides what it means. *status is written on success only.
bool CloudSecIdentify(DeviceQueues* queues, std::uint32_t* status,
                      const std::atomic<bool>* abort = nullptr);

// True from a successful handshake until the session is cleared. Any thread.
bool CloudSecEstablished();

// Wipes keys, salt and counters. Any thread, at any time but during a handshake: waits for a seal
// or an open that is going on, and after its return none succeeds before the next handshake.
void CloudSecClearSession();

// The packet to put on the wire in place of this one, never null: a CRYP, 24 bytes longer, or, as
// long as nothing is established, for an NHS1, or when sealing failed (which is logged), the packet
// itself. Traces the packet given, "tx" "plain", unless it is an NHS1; the caller traces and counts
// the packet returned, "tx" "wire". The receiver opens packets in the order of sealing only, so
// call it from one thread, and send the result before the next call.
PacketPtr CloudSecSeal(PacketPtr packet);

// Replaces a CRYP by the packet inside. False: `packet` is still the CRYP, to be dropped by the
// caller, who logs that; the counter stays, so the relay's next packet must be the one expected
// now. Traces nothing. Of the session, which is &cloud_session, only the receive thread opens.
bool CloudSecOpen(CloudSecSession* session, PacketPtr& packet);

}  // namespace tarvik
