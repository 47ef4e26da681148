#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"

// The secure channel to the cloud relay: identity, handshake, sealing, identification. It does not
// depend on a carrier: what it sends goes to the tail of the transmit queue, what it waits for
// comes from the receive queue, and the threads that serve the queues run throughout. There is one
// channel per process.
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

struct CloudSecSession;  // secure_channel_state.h, for the channel's own files
extern CloudSecSession& cloud_session;

// DEVA's answer to the identification. Any other value is accepted like kDeviceRegistered.
inline constexpr std::uint32_t kDeviceRegistered = 0;
inline constexpr std::uint32_t kDeviceIsolated = 1;
inline constexpr std::uint32_t kDeviceRejected = 2;
// "REJECTED (blacklisted)"
const char* CloudSecStatusText(std::uint32_t status);

// Derives the identity's public key from its private key. Connection thread only.
bool CloudSecDerivePublicKey();

// Reads both keys from `config`, as PDUConstruct read it. If the configuration has no key or one
// that is not a scalar of the curve, makes a key pair, puts it into config.devicePrivateKey and
// writes the file. Connection thread only, before the handshake.
bool CloudSecLoadIdentity();

// Needs an identity. Clears the session, sends NHS1, waits up to 1000 ms for NHS2, and installs the
// new session as its last step: once it has returned true, everything that passes through
// CloudSecSeal is sealed. `queues` must be available. Takes an NHS2 that is already in the receive
// queue, so one of an earlier connection must be removed first. If *abort is set, ends within 100
// ms as if the time had run out; `abort` may be null.
bool CloudSecHandshake(DeviceQueues* queues, const std::atomic<bool>* abort = nullptr);

// Sends DEVI and waits up to 1000 ms for DEVA, after the handshake and under the same rules. True
// for every status; the caller decides what it means. *status is written on success only.
bool CloudSecIdentify(DeviceQueues* queues, std::uint32_t* status,
                      const std::atomic<bool>* abort = nullptr);

// True from a successful handshake until the session is cleared. Any thread.
bool CloudSecEstablished();

// Wipes keys, salt and counters. Any thread, at any time except during a handshake: waits for a
// seal or an open in progress. After its return none succeeds before the next handshake.
void CloudSecClearSession();

// Returns the packet to send in place of this one, never null: a CRYP, 24 bytes longer; or the
// packet itself if nothing is established, if it is an NHS1, or if sealing failed (which is
// logged). Traces the packet given, "tx" "plain", unless it is an NHS1; the caller traces and
// counts the packet returned, "tx" "wire". The receiver can only open packets in the order of
// sealing, so call it from one thread, and send the result before the next call.
PacketPtr CloudSecSeal(PacketPtr packet);

// Replaces a CRYP by the packet inside. False: `packet` is still the CRYP, which the caller logs
// and drops; the counter does not change, so the relay's next packet must be the one expected now.
// Traces nothing. Only the receive thread opens packets of &cloud_session.
bool CloudSecOpen(CloudSecSession* session, PacketPtr& packet);

}  // namespace tarvik
