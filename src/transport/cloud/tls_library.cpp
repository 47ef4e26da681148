#include "transport/cloud/tls_library.h"

#include <openssl/x509.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <system_error>

#include "platform/posix/standard_descriptors.h"
#include "platform/process.h"

namespace tarvik {

namespace {

std::atomic<bool> process_is_ending{false};
std::atomic<bool> is_unloaded{false};

// Once nothing is cleaned up any more, the library must stay, whatever exit handlers that follow
// unload: OpenSSL has given the system functions to call when a thread ends.
struct NotesProcessEnd {
    ~NotesProcessEnd() {
        if (is_unloaded.load()) return;
        process_is_ending.store(true);
        OsKeepLibraryLoaded();
    }
};

// When a process ends, its static objects are destroyed first: threads of an application that has
// not called PDUDestruct may still be using OpenSSL. Nothing is cleaned up then. When the library
// is unloaded, this function is called first, and none of its threads is left. What OpenSSL keeps
// for threads of the application must go: they would run its destructors, which are unloaded.
__attribute__((destructor)) void CleanUpUnlessTheProcessEnds() {
    if (process_is_ending.load()) return;
    is_unloaded.store(true);
    ::OPENSSL_cleanup();
}

void Initialize() {
    // The handler must be later in the list of exit() than the loader's own, which runs the
    // function above. A static object of a library that the host is linked with is not.
    static const NotesProcessEnd notes_process_end;
    constexpr std::uint64_t kOptions = OPENSSL_INIT_NO_ATEXIT | OPENSSL_INIT_NO_LOAD_CONFIG;
    if (::OPENSSL_init_crypto(kOptions, nullptr) == 0) throw std::bad_alloc();
    if (::OPENSSL_init_ssl(kOptions, nullptr) == 0) throw std::bad_alloc();
}

bool IsSet(const char* variable) { return std::getenv(variable) != nullptr; }

bool UserNamesIssuers() {
    return IsSet(::X509_get_default_cert_file_env()) || IsSet(::X509_get_default_cert_dir_env());
}

bool Exists(const char* path) {
    std::error_code unreadable;
    return std::filesystem::exists(path, unreadable);
}

}  // namespace

SSL_CTX* CreateTlsClientContext() {
    Initialize();
    SSL_CTX* context = ::SSL_CTX_new(::TLS_client_method());
    if (context == nullptr) throw std::bad_alloc();
    return context;
}

const char* FindIssuersFile(bool (*exists)(const char* path)) {
    constexpr const char* kFiles[] = {
        "/etc/pki/tls/certs/ca-bundle.crt",    // Fedora, Red Hat
        "/etc/ssl/ca-bundle.pem",              // SUSE
        "/etc/ssl/certs/ca-certificates.crt",  // Arch
        "/etc/ssl/cert.pem",                   // Alpine
    };
    if (exists(::X509_get_default_cert_dir())) return nullptr;
    for (const char* file : kFiles) {
        if (exists(file)) return file;
    }
    return nullptr;
}

bool TrustSystemIssuers(SSL_CTX* context) {
    const StandardDescriptorsTaken standard;
    if (::SSL_CTX_set_default_verify_paths(context) != 1) return false;
    const char* file = UserNamesIssuers() ? nullptr : FindIssuersFile(&Exists);
    return file == nullptr || ::SSL_CTX_load_verify_file(context, file) == 1;
}

}  // namespace tarvik
