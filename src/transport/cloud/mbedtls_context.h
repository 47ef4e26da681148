#pragma once

#include <mbedtls/bignum.h>
#include <mbedtls/ecp.h>
#include <mbedtls/platform_util.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarvik {

// A record of mbedTLS's from its init to its free function, which also wipes it.
template <typename Context, void (*Init)(Context*), void (*Free)(Context*)>
class MbedTlsContext {
public:
    MbedTlsContext() { Init(&context_); }
    ~MbedTlsContext() { Free(&context_); }
    MbedTlsContext(const MbedTlsContext&) = delete;
    MbedTlsContext& operator=(const MbedTlsContext&) = delete;

    Context* Get() { return &context_; }
    const Context* Get() const { return &context_; }

private:
    Context context_;
};

using EcGroup = MbedTlsContext<mbedtls_ecp_group, mbedtls_ecp_group_init, mbedtls_ecp_group_free>;
using EcPoint = MbedTlsContext<mbedtls_ecp_point, mbedtls_ecp_point_init, mbedtls_ecp_point_free>;
using BigNumber = MbedTlsContext<mbedtls_mpi, mbedtls_mpi_init, mbedtls_mpi_free>;

// Bytes that are wiped when they go. Not copied, so that there is one place to wipe.
template <std::size_t N>
struct Secret : std::array<std::uint8_t, N> {
    Secret() : std::array<std::uint8_t, N>{} {}
    ~Secret() { Wipe(); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    void Wipe() { mbedtls_platform_zeroize(this->data(), N); }
};

}  // namespace tarvik
