include_guard()

# tarvik_hook_crypto(TARGET): adds crypto_hooks.cpp, to which the linker redirects the calls.
set(TARVIK_CRYPTO_HOOKS "${CMAKE_CURRENT_LIST_DIR}/crypto_hooks.cpp")
function(tarvik_hook_crypto target)
    set(hooked
        mbedtls_ctr_drbg_random
        mbedtls_ctr_drbg_seed
        mbedtls_ecdh_compute_shared
        mbedtls_ecp_gen_keypair
        mbedtls_ecp_group_load
        mbedtls_ecp_mul
        mbedtls_ecp_point_write_binary
        mbedtls_gcm_crypt_and_tag
        mbedtls_gcm_setkey
        mbedtls_hkdf_expand
        mbedtls_hkdf_extract
        mbedtls_mpi_read_binary
        mbedtls_mpi_write_binary)
    list(TRANSFORM hooked PREPEND "-Wl,--wrap=")
    target_sources(${target} PRIVATE "${TARVIK_CRYPTO_HOOKS}")
    target_link_options(${target} PRIVATE ${hooked})
endfunction()
