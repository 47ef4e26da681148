#pragma once

#include <atomic>
#include <cstdint>

#include "platform/lock.h"
#include "transport/cloud/secure_channel_crypto.h"

// The channel's identity and session, for its own files and their tests.
namespace tarvik {

// Used by the connection thread only. Its keys are not wiped with the session.
struct CloudSecIdentity {
    Secret<kScalarSize> devicePrivateKey;
    EncodedPoint devicePublicKey{};
    EncodedPoint serverPublicKey{};  // not yet known to be on the curve
    bool identityLoaded = false;     // both keys are in place
};
extern CloudSecIdentity& cloud_identity;

// What a handshake derives.
struct SessionKeys {
    Secret<kAeadKeySize> txKey;
    Secret<kAeadKeySize> rxKey;
    Secret<32> nonceSalt;  // only the first 12 bytes are used
    AeadKey tx_cipher;     // txKey's schedule; in a session guarded by its sealing_lock
    AeadKey rx_cipher;     // rxKey's schedule; in a session guarded by its opening_lock

    void Wipe();
    void TakeOver(SessionKeys* other);  // wipes the other's
};

// Its keys change only while nothing is established, and under both locks.
struct CloudSecSession : SessionKeys {
    // Packets are sealed and opened at the same time. Where both locks are needed, sealing_lock is
    // taken first.
    OsLock sealing_lock;
    OsLock opening_lock;
    std::uint64_t txCounter = 0;  // packets sealed so far, guarded by sealing_lock
    std::uint64_t rxCounter = 0;  // packets opened so far, guarded by opening_lock
    // Set when everything above is in place; changed under both locks.
    std::atomic<bool> established{false};
};

// Wipes keys, salt and counters. Waits for a seal or an open in progress.
void ClearSession(CloudSecSession* session);

// Establishes a session with these keys, which it takes over. The session must be clear.
void InstallSession(CloudSecSession* session, SessionKeys* keys);

}  // namespace tarvik
