#include "transport/cloud/secure_channel_state.h"

#include "platform/immortal.h"

namespace tarvik {
namespace {

Immortal<CloudSecIdentity> identity_storage;

class SessionGuard {
public:
    explicit SessionGuard(CloudSecSession* session)
        : sealing_(session->sealing_lock), opening_(session->opening_lock) {}

private:
    LockGuard sealing_;
    LockGuard opening_;
};

}  // namespace

CloudSecIdentity& cloud_identity = *identity_storage;

void SessionKeys::Wipe() {
    tx_cipher.Wipe();
    rx_cipher.Wipe();
    txKey.Wipe();
    rxKey.Wipe();
    nonceSalt.Wipe();
}

void SessionKeys::TakeOver(SessionKeys* other) {
    tx_cipher.TakeOver(&other->tx_cipher);
    rx_cipher.TakeOver(&other->rx_cipher);
    txKey.TakeOver(&other->txKey);
    rxKey.TakeOver(&other->rxKey);
    nonceSalt.TakeOver(&other->nonceSalt);
}

void ClearSession(CloudSecSession* session) {
    const SessionGuard hold(session);
    session->established = false;
    session->Wipe();
    session->txCounter = 0;
    session->rxCounter = 0;
}

void InstallSession(CloudSecSession* session, SessionKeys* keys) {
    const SessionGuard hold(session);
    session->TakeOver(keys);
    // Deliberate: the welcome does not count, so that the relay's first packet has its nonce.
    session->txCounter = 0;
    session->rxCounter = 0;
    session->established.store(true, std::memory_order_release);
}

}  // namespace tarvik
