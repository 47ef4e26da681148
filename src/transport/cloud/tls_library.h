#pragma once

#include <openssl/ssl.h>

namespace tarvik {

// OpenSSL is part of this library, apart from any that the host has: it reads no configuration of
// the host, which may name modules for another OpenSSL, and is cleaned up when the library is
// unloaded. Once the process's exit handlers run, the library is not unloaded any more.

// A context for connections to servers. Throws std::bad_alloc.
SSL_CTX* CreateTlsClientContext();

// Connections of the context accept the issuers that the system trusts, or those that the variables
// SSL_CERT_FILE and SSL_CERT_DIR name. False: they cannot be read.
bool TrustSystemIssuers(SSL_CTX* context);

// OpenSSL looks for the issuers where Debian keeps them. On a system without that folder: the file
// of another distribution that exists. Null: none is needed, or there is none.
const char* FindIssuersFile(bool (*exists)(const char* path));

}  // namespace tarvik
