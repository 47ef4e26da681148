#include "unit/cloud/crypto_hooks.h"

#include <mbedtls/ctr_drbg.h>
#include <mbedtls/ecdh.h>
#include <mbedtls/ecp.h>
#include <mbedtls/gcm.h>
#include <mbedtls/hkdf.h>

#include <optional>
#include <utility>

namespace tarvik::test {
namespace {

struct Fault {
    CryptoStep step;
    unsigned spared;
    bool struck;
};
std::optional<Fault> fault;
const Bytes* ephemeral_scalar = nullptr;
const Bytes* ephemeral_point = nullptr;
CryptoRecord* record = nullptr;
std::function<void()> observer;

// Called first by every hook.
bool Fails(CryptoStep step) {
    if (observer) observer();
    if (!fault || fault->step != step || fault->struck) return false;
    if (fault->spared > 0) {
        --fault->spared;
        return false;
    }
    fault->struck = true;
    return true;
}

}  // namespace

CryptoFault::CryptoFault(CryptoStep step, unsigned spared) { fault = {step, spared, false}; }
CryptoFault::~CryptoFault() { fault.reset(); }
bool CryptoFault::Struck() const { return fault->struck; }

FixedEphemeral::FixedEphemeral(const Bytes& scalar, const Bytes& point) {
    ephemeral_scalar = &scalar;
    ephemeral_point = &point;
}
FixedEphemeral::~FixedEphemeral() { ephemeral_scalar = ephemeral_point = nullptr; }

CryptoRecord::CryptoRecord() { record = this; }
CryptoRecord::~CryptoRecord() { record = nullptr; }

CryptoObserver::CryptoObserver(std::function<void()> look) { observer = std::move(look); }
CryptoObserver::~CryptoObserver() { observer = nullptr; }

}  // namespace tarvik::test

// --- what the linker redirects the calls to ---

using namespace tarvik;
using namespace tarvik::test;

// A hook that lets the call fail or passes it on.
#define TARVIK_FAULT(function, step, parameters, arguments)                  \
    extern "C" int __real_##function parameters;                             \
    extern "C" int __wrap_##function parameters;                             \
    extern "C" int __wrap_##function parameters {                            \
        return Fails(step) ? kCryptoFaultCode : __real_##function arguments; \
    }

using RandomFunction = int (*)(void*, unsigned char*, std::size_t);

TARVIK_FAULT(mbedtls_ctr_drbg_seed, CryptoStep::kSeed,
             (mbedtls_ctr_drbg_context * context, RandomFunction entropy, void* argument,
              const unsigned char* custom, std::size_t size),
             (context, entropy, argument, custom, size))
TARVIK_FAULT(mbedtls_ctr_drbg_random, CryptoStep::kRandom,
             (void* context, unsigned char* out, std::size_t size), (context, out, size))
TARVIK_FAULT(mbedtls_ecp_group_load, CryptoStep::kGroupLoad,
             (mbedtls_ecp_group * group, mbedtls_ecp_group_id id), (group, id))
TARVIK_FAULT(mbedtls_mpi_read_binary, CryptoStep::kMpiRead,
             (mbedtls_mpi * number, const unsigned char* from, std::size_t size),
             (number, from, size))
TARVIK_FAULT(mbedtls_mpi_write_binary, CryptoStep::kMpiWrite,
             (const mbedtls_mpi* number, unsigned char* to, std::size_t size), (number, to, size))
TARVIK_FAULT(mbedtls_ecp_mul, CryptoStep::kMultiply,
             (mbedtls_ecp_group * group, mbedtls_ecp_point* product, const mbedtls_mpi* scalar,
              const mbedtls_ecp_point* point, RandomFunction random, void* argument),
             (group, product, scalar, point, random, argument))
TARVIK_FAULT(mbedtls_hkdf_expand, CryptoStep::kExpand,
             (const mbedtls_md_info_t* hash, const unsigned char* prk, std::size_t prk_size,
              const unsigned char* info, std::size_t info_size, unsigned char* out,
              std::size_t size),
             (hash, prk, prk_size, info, info_size, out, size))
TARVIK_FAULT(mbedtls_gcm_crypt_and_tag, CryptoStep::kEncrypt,
             (mbedtls_gcm_context * context, int mode, std::size_t size, const unsigned char* iv,
              std::size_t iv_size, const unsigned char* aad, std::size_t aad_size,
              const unsigned char* in, unsigned char* out, std::size_t tag_size,
              unsigned char* tag),
             (context, mode, size, iv, iv_size, aad, aad_size, in, out, tag_size, tag))

#define TARVIK_WRAP(name) __asm__("__wrap_" name)
#define TARVIK_REAL(name) __asm__("__real_" name)

int RealPointWrite(const mbedtls_ecp_group*, const mbedtls_ecp_point*, int, std::size_t*,
                   unsigned char*, std::size_t) TARVIK_REAL("mbedtls_ecp_point_write_binary");
int WrappedPointWrite(const mbedtls_ecp_group*, const mbedtls_ecp_point*, int, std::size_t*,
                      unsigned char*, std::size_t) TARVIK_WRAP("mbedtls_ecp_point_write_binary");
int WrappedPointWrite(const mbedtls_ecp_group* group, const mbedtls_ecp_point* point, int format,
                      std::size_t* length, unsigned char* out, std::size_t size) {
    if (Fails(CryptoStep::kPointWrite)) return kCryptoFaultCode;
    const int result = RealPointWrite(group, point, format, length, out, size);
    if (Fails(CryptoStep::kPointLength)) *length = 33;
    return result;
}

int RealGenerate(mbedtls_ecp_group*, mbedtls_mpi*, mbedtls_ecp_point*, RandomFunction, void*)
    TARVIK_REAL("mbedtls_ecp_gen_keypair");
int WrappedGenerate(mbedtls_ecp_group*, mbedtls_mpi*, mbedtls_ecp_point*, RandomFunction, void*)
    TARVIK_WRAP("mbedtls_ecp_gen_keypair");
int WrappedGenerate(mbedtls_ecp_group* group, mbedtls_mpi* scalar, mbedtls_ecp_point* point,
                    RandomFunction random, void* argument) {
    if (Fails(CryptoStep::kGenerate)) return kCryptoFaultCode;
    if (ephemeral_scalar == nullptr) return RealGenerate(group, scalar, point, random, argument);
    const Bytes& d = *ephemeral_scalar;
    const Bytes& q = *ephemeral_point;
    return mbedtls_mpi_read_binary(scalar, d.data(), d.size()) != 0
               ? kCryptoFaultCode
               : mbedtls_ecp_point_read_binary(group, point, q.data(), q.size());
}

int RealAgree(mbedtls_ecp_group*, mbedtls_mpi*, const mbedtls_ecp_point*, const mbedtls_mpi*,
              RandomFunction, void*) TARVIK_REAL("mbedtls_ecdh_compute_shared");
int WrappedAgree(mbedtls_ecp_group*, mbedtls_mpi*, const mbedtls_ecp_point*, const mbedtls_mpi*,
                 RandomFunction, void*) TARVIK_WRAP("mbedtls_ecdh_compute_shared");
int WrappedAgree(mbedtls_ecp_group* group, mbedtls_mpi* secret, const mbedtls_ecp_point* point,
                 const mbedtls_mpi* scalar, RandomFunction random, void* argument) {
    if (Fails(CryptoStep::kAgree)) return kCryptoFaultCode;
    const int result = RealAgree(group, secret, point, scalar, random, argument);
    if (result != 0 || record == nullptr) return result;
    Bytes bytes(32);
    const int written = mbedtls_mpi_write_binary(secret, bytes.data(), bytes.size());
    record->shared_secrets.push_back(bytes);
    return written;
}

int RealExtract(const mbedtls_md_info_t*, const unsigned char*, std::size_t, const unsigned char*,
                std::size_t, unsigned char*) TARVIK_REAL("mbedtls_hkdf_extract");
int WrappedExtract(const mbedtls_md_info_t*, const unsigned char*, std::size_t,
                   const unsigned char*, std::size_t, unsigned char*)
    TARVIK_WRAP("mbedtls_hkdf_extract");
int WrappedExtract(const mbedtls_md_info_t* hash, const unsigned char* salt, std::size_t salt_size,
                   const unsigned char* ikm, std::size_t size, unsigned char* prk) {
    if (Fails(CryptoStep::kExtract)) return kCryptoFaultCode;
    const int result = RealExtract(hash, salt, salt_size, ikm, size, prk);
    if (result == 0 && record != nullptr) record->extracted.emplace_back(prk, prk + 32);
    return result;
}

int RealSetKey(mbedtls_gcm_context*, mbedtls_cipher_id_t, const unsigned char*, unsigned)
    TARVIK_REAL("mbedtls_gcm_setkey");
int WrappedSetKey(mbedtls_gcm_context*, mbedtls_cipher_id_t, const unsigned char*, unsigned)
    TARVIK_WRAP("mbedtls_gcm_setkey");
int WrappedSetKey(mbedtls_gcm_context* context, mbedtls_cipher_id_t cipher,
                  const unsigned char* key, unsigned bits) {
    if (Fails(CryptoStep::kSetKey)) return kCryptoFaultCode;
    if (record != nullptr) ++record->keys_set_up;
    return RealSetKey(context, cipher, key, bits);
}
