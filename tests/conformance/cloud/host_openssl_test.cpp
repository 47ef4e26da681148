// Hosts with an OpenSSL of their own.
#include "conformance/cloud/host_openssl.h"

#include <dlfcn.h>
#include <pthread.h>

#include <fstream>
#include <future>
#include <thread>

#include "conformance/cloud/relay_fixture.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"

namespace conformance {
namespace {

#define NAME(name) #name,
constexpr const char* kHostFunctions[] = {HOST_OPENSSL_FUNCTIONS(NAME)};
#undef NAME

class HostOpenSsl : public RelayFixture {
public:
    // Has a connection whose certificate is checked, in `library`.
    static void ConnectAndDestruct(const Functions& library) {
        SetVariable("SSL_CERT_FILE", Relay::CertificateFile());
        Settings settings = SettingsFor(Way::kSecureWebSocket);
        settings.disableCertValidation = false;
        settings.Store();
        const LogCapture log;
        ASSERT_EQ(library.PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        EXPECT_TRUE(Eventually([&] { return log.Has("[Cloud] Connected"); })) << log.Text();
        ASSERT_EQ(library.PDUDestruct(), PDU_STATUS_NOERROR);
        SetVariable("SSL_CERT_FILE", "");
    }
};

TEST_F(HostOpenSsl, IsNotCalledByTheLibrary) {
    for (const char* name : kHostFunctions)
        ASSERT_NE(::dlsym(RTLD_DEFAULT, name), nullptr) << name;
    ConnectAndDestruct(Pdu());
}

// A configuration that names a module makes the initialisation fail, since the file does not exist.
// If it did, it could be for another OpenSSL.
TEST(HostOpenSslConfiguration, IsNotRead) {
    if (IsProcessFor(RunningTest())) return HostOpenSsl::ConnectAndDestruct(Pdu());
    const std::string file = PrivateFolder() + "/openssl.cnf";
    std::ofstream(file) << "openssl_conf = all\nconfig_diagnostics = 1\n[all]\nproviders = named\n"
                           "[named]\nhost = host\n[host]\nmodule = /nonexistent.so\nactivate = 1\n";
    const ProgramRun run = RunTestInFreshProcess(RunningTest(), {{"OPENSSL_CONF", file}});
    EXPECT_EQ(run.exit_code, 0) << run.output;
}

// The next number of the keys for thread-specific data, of which a process has some thousand.
pthread_key_t NextKey() {
    pthread_key_t key = 0;
    EXPECT_EQ(::pthread_key_create(&key, nullptr), 0);
    EXPECT_EQ(::pthread_key_delete(key), 0);
    return key;
}

bool LibraryIsLoaded() {
    void* library = ::dlopen(LibraryPath().c_str(), RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr && ::dlclose(library) == 0;
}

// Uses the library on a thread of its own and unloads it while that thread exists. False: it is
// still loaded, since a thread of it took long to end; the next use unloads it.
bool UseFromThread() {
    std::promise<void> used;
    std::promise<void> unloaded;
    LibraryInstance library(LibraryPath());
    EXPECT_TRUE(library.IsLoaded()) << library.Error();
    std::thread user([&] {
        HostOpenSsl::ConnectAndDestruct(*library);
        used.set_value();
        unloaded.get_future().wait();
    });
    used.get_future().wait();
    EXPECT_TRUE(library.Unload());
    const bool is_unloaded = !LibraryIsLoaded();
    unloaded.set_value();
    user.join();
    return is_unloaded;
}

FRESH_PROCESS_TEST(OwnOpenSsl, LeavesNothingBehindWhenTheLibraryIsUnloaded) {
    ASSERT_TRUE(Eventually(&UseFromThread));
    const pthread_key_t before = NextKey();
    for (int round = 0; round < 3; ++round)
        ASSERT_TRUE(Eventually(&UseFromThread));
    EXPECT_EQ(NextKey(), before);
}

}  // namespace
}  // namespace conformance
