// Only OpenSSL's low-level AES interface accepts a ready key schedule; the current interfaces
// expand a key themselves.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "protocol/seal.h"

#include <openssl/aes.h>

#include <algorithm>

namespace brennix {

namespace {

AES_KEY ZeroSchedule() {
    AES_KEY schedule = {};
    schedule.rounds = 14;
    return schedule;
}

}  // namespace

Bytes Seal::Close(ByteSpan packet) {
    static const AES_KEY kSchedule = ZeroSchedule();
    Bytes plain(packet.begin(), packet.end());
    plain.resize((plain.size() + kBlockSize - 1) / kBlockSize * kBlockSize);
    Bytes sealed;
    sealed.reserve(plain.size());
    for (std::size_t at = 0; at < plain.size(); at += kBlockSize) {
        for (std::size_t i = 0; i < kBlockSize; ++i)
            chain_[i] ^= plain[at + i];
        AES_encrypt(chain_.data(), chain_.data(), &kSchedule);
        AppendBytes(&sealed, chain_);
    }
    return MakePacket(type::kCryp, sealed);
}

}  // namespace brennix
