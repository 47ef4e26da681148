#pragma once

#include <mbedtls/ctr_drbg.h>

// The channel's random generator. Connection thread only: it has no lock.
namespace tarvik {

// Seeds the generator, once per process; tries again after a failure, which it logs.
bool CloudSecInitRng();

// For mbedTLS's functions, after CloudSecInitRng has returned true.
mbedtls_ctr_drbg_context* CloudSecRng();

}  // namespace tarvik
