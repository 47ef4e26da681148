#include "transport/cloud/secure_channel_random.h"

#include <mbedtls/entropy.h>
#include <mbedtls/platform.h>

#include <string_view>

#include "support/memory.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/mbedtls_context.h"

namespace tarvik {
namespace {

constexpr std::string_view kPersonalisation = "obd_platform_noise";

// Never released: the generator is seeded once and used until the process ends.
mbedtls_entropy_context entropy;
mbedtls_ctr_drbg_context ctr_drbg;
bool rngReady = false;

}  // namespace

mbedtls_ctr_drbg_context* CloudSecRng() { return &ctr_drbg; }

bool CloudSecInitRng() {
    if (rngReady) return true;
    mbedtls_platform_set_calloc_free(AllocateArray, FreeMem);
    mbedtls_entropy_init(&entropy);
    mbedtls_ctr_drbg_init(&ctr_drbg);
    const int result = mbedtls_ctr_drbg_seed(
        &ctr_drbg, mbedtls_entropy_func, &entropy,
        reinterpret_cast<const unsigned char*>(kPersonalisation.data()), kPersonalisation.size());
    if (result != 0) {
        CloudLog("[CloudSec] [E] mbedtls_ctr_drbg_seed failed: -0x%04X\n", MbedTlsCode(result));
        mbedtls_ctr_drbg_free(&ctr_drbg);
        mbedtls_entropy_free(&entropy);
        return false;
    }
    rngReady = true;
    return true;
}

}  // namespace tarvik
