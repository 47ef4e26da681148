#pragma once

#include <mbedtls/bignum.h>
#include <mbedtls/ecp.h>
#include <mbedtls/platform_util.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tarvik {

// mbedTLS's error codes are negative; its documentation lists them without the sign.
inline unsigned MbedTlsCode(int result) { return static_cast<unsigned>(-result); }

// An mbedTLS record: initialised, and freed at the end, which also wipes it.
template <typename Context, void (*Init)(Context*), void (*Free)(Context*)>
class MbedTlsContext {
public:
    MbedTlsContext() { Init(&context_); }
    ~MbedTlsContext() { Free(&context_); }
    MbedTlsContext(const MbedTlsContext&) = delete;
    MbedTlsContext& operator=(const MbedTlsContext&) = delete;

    // Frees the record and initialises it again.
    void Reset() {
        Free(&context_);
        Init(&context_);
    }
    // Frees this record, then moves the other one here and initialises the other again. Only for
    // types without pointers into themselves.
    void TakeOver(MbedTlsContext* other) {
        static_assert(std::is_trivially_copyable_v<Context>);
        Free(&context_);
        std::memcpy(&context_, &other->context_, sizeof context_);
        mbedtls_platform_zeroize(&other->context_, sizeof other->context_);
        Init(&other->context_);
    }

    Context* Get() { return &context_; }
    const Context* Get() const { return &context_; }

private:
    Context context_;
};

using EcGroup = MbedTlsContext<mbedtls_ecp_group, mbedtls_ecp_group_init, mbedtls_ecp_group_free>;
using EcPoint = MbedTlsContext<mbedtls_ecp_point, mbedtls_ecp_point_init, mbedtls_ecp_point_free>;
using BigNumber = MbedTlsContext<mbedtls_mpi, mbedtls_mpi_init, mbedtls_mpi_free>;

// Bytes that are wiped when they go. Never copied, so that there is one place to wipe.
template <std::size_t N>
struct Secret : std::array<std::uint8_t, N> {
    Secret() : std::array<std::uint8_t, N>{} {}
    ~Secret() { Wipe(); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    void Wipe() { mbedtls_platform_zeroize(this->data(), N); }
    // Moves the other's bytes here and wipes the other.
    void TakeOver(Secret* other) {
        std::memcpy(this->data(), other->data(), N);
        other->Wipe();
    }
};

}  // namespace tarvik
