// The relay's certificate for wss, which it creates itself.

#pragma once

#include <openssl/types.h>

#include <memory>
#include <string>

namespace brennix {

struct TlsContextDeleter {
    void operator()(SSL_CTX* context) const;
};
using TlsContext = std::unique_ptr<SSL_CTX, TlsContextDeleter>;

// Creates both files if they are missing. The certificate is self-signed, for `host`, localhost and
// 127.0.0.1, and valid for ten years. Throws std::runtime_error.
void EnsureCertificate(const std::string& certificate_file, const std::string& key_file,
                       const std::string& host);

TlsContext LoadTlsContext(const std::string& certificate_file, const std::string& key_file);

}  // namespace brennix
