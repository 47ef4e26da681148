#pragma once

// This program plays a host that has an OpenSSL of its own and exports it, without versions. Some
// of what the library and OpenSSL itself call; each ends the process.
// clang-format off
#define HOST_OPENSSL_FUNCTIONS(X) \
    X(BIO_new) \
    X(BIO_new_bio_pair) \
    X(BIO_read) \
    X(CRYPTO_free) \
    X(CRYPTO_malloc) \
    X(ERR_clear_error) \
    X(ERR_get_error) \
    X(ERR_new) \
    X(EVP_CIPHER_CTX_new) \
    X(EVP_CIPHER_fetch) \
    X(EVP_DigestInit_ex) \
    X(EVP_MD_CTX_new) \
    X(EVP_MD_fetch) \
    X(EVP_PKEY_new) \
    X(OPENSSL_cleanup) \
    X(OPENSSL_init_crypto) \
    X(OPENSSL_init_ssl) \
    X(RAND_bytes_ex) \
    X(SSL_CTX_ctrl) \
    X(SSL_CTX_free) \
    X(SSL_CTX_new) \
    X(SSL_connect) \
    X(SSL_free) \
    X(SSL_new) \
    X(SSL_read) \
    X(SSL_write) \
    X(TLS_client_method) \
    X(X509_verify_cert)
// clang-format on
