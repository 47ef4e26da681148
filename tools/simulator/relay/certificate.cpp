#include "relay/certificate.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "relay/releaser.h"

namespace brennix {

namespace {

constexpr long kLifetimeSeconds = 10L * 365 * 24 * 3600;

using PrivateKey = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;
using File = std::unique_ptr<std::FILE, Releaser<std::fclose>>;

bool Exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

// Created readable by its owner only.
File Create(const std::string& path, mode_t mode) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    File file(fd < 0 ? nullptr : ::fdopen(fd, "w"));
    if (!file) throw std::runtime_error(path + ": cannot be written");
    return file;
}

void AddExtension(X509* certificate, int id, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str());
    if (extension == nullptr) throw std::runtime_error("OpenSSL: bad extension " + value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Certificate MakeCertificate(EVP_PKEY* key, const std::string& host) {
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kLifetimeSeconds);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    static constexpr unsigned char kName[] = "brennix-relay";
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, kName, -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    std::string names = "DNS:localhost,IP:127.0.0.1";
    if (host != "127.0.0.1" && host != "0.0.0.0") names += ",IP:" + host;
    AddExtension(certificate.get(), NID_subject_alt_name, names);
    AddExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    if (X509_sign(certificate.get(), key, EVP_sha256()) == 0) {
        throw std::runtime_error("OpenSSL: the certificate cannot be signed");
    }
    return certificate;
}

}  // namespace

void TlsContextDeleter::operator()(SSL_CTX* context) const { SSL_CTX_free(context); }

void EnsureCertificate(const std::string& certificate_file, const std::string& key_file,
                       const std::string& host) {
    const bool has_certificate = Exists(certificate_file);
    if (has_certificate && Exists(key_file)) return;
    if (has_certificate || Exists(key_file)) {
        const std::string& present = has_certificate ? certificate_file : key_file;
        const std::string& missing = has_certificate ? key_file : certificate_file;
        throw std::runtime_error(present + ": is there without " + missing + ", so it is kept");
    }
    const PrivateKey key(EVP_EC_gen("P-256"));
    if (key == nullptr) throw std::runtime_error("OpenSSL: no key for the certificate");
    const Certificate certificate = MakeCertificate(key.get(), host);
    if (PEM_write_PrivateKey(Create(key_file, 0600).get(), key.get(), nullptr, nullptr, 0, nullptr,
                             nullptr) != 1 ||
        PEM_write_X509(Create(certificate_file, 0644).get(), certificate.get()) != 1) {
        throw std::runtime_error(certificate_file + ": cannot be written");
    }
}

TlsContext LoadTlsContext(const std::string& certificate_file, const std::string& key_file) {
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    if (context == nullptr ||
        SSL_CTX_use_certificate_chain_file(context.get(), certificate_file.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context.get(), key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
        throw std::runtime_error(certificate_file + ", " + key_file +
                                 ": no certificate with its key");
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    return context;
}

}  // namespace brennix
