// Hosts with an OpenSSL of their own.
#include "conformance/cloud/host_openssl.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>
#include <thread>
#include <utility>

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
    static void Connect(const Functions& library) {
        SetVariable("SSL_CERT_FILE", Relay::CertificateFile());
        Settings settings = SettingsFor(Way::kSecureWebSocket);
        settings.disableCertValidation = false;
        settings.Store();
        const LogCapture log;
        ASSERT_EQ(library.PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        EXPECT_TRUE(Eventually([&] { return log.Has("[Cloud] Connected"); })) << log.Text();
        SetVariable("SSL_CERT_FILE", "");
    }
    static void ConnectAndDestruct(const Functions& library) {
        ASSERT_NO_FATAL_FAILURE(Connect(library));
        ASSERT_EQ(library.PDUDestruct(), PDU_STATUS_NOERROR);
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

// A host whose exit handler unloads the library, while a thread of its own exists that has used it.
class UnloadingAtExit {
public:
    enum class Handler { kRegisteredFirst, kRegisteredLast };
    enum class Destruct { kBefore, kInHandler };

    static void Run(Handler handler, Destruct destruct) {
        static UnloadingAtExit* host = nullptr;
        const auto at_exit = [] { delete std::exchange(host, nullptr); };
        if (handler == Handler::kRegisteredFirst) std::atexit(at_exit);
        host = new UnloadingAtExit(destruct);
        if (handler == Handler::kRegisteredLast) std::atexit(at_exit);
    }

private:
    explicit UnloadingAtExit(Destruct destruct) : destruct_(destruct), library_(LibraryPath()) {
        EXPECT_TRUE(library_.IsLoaded()) << library_.Error();
        user_ = std::thread([this] {
            HostOpenSsl::Connect(*library_);
            if (destruct_ == Destruct::kBefore) library_->PDUDestruct();
            used_.set_value();
            unloaded_.get_future().wait();
        });
        used_.get_future().wait();
    }
    ~UnloadingAtExit() {
        if (destruct_ == Destruct::kInHandler) library_->PDUDestruct();
        library_.Unload();
        const bool is_clean = LibraryIsLoaded() || NextKey() == first_key_;
        unloaded_.set_value();
        user_.join();
        if (!is_clean) ReportAndEnd();
    }
    [[noreturn]] static void ReportAndEnd() {
        std::fprintf(stderr, "threads that end would call functions that are unloaded\n");
        ::_exit(1);
    }

    const Destruct destruct_;
    const pthread_key_t first_key_ = NextKey();
    LibraryInstance library_;
    std::promise<void> used_;
    std::promise<void> unloaded_;
    std::thread user_;
};

FRESH_PROCESS_TEST(OwnOpenSsl, MayBeUnloadedInAnExitHandlerAfterTheLibrarysOwn) {
    UnloadingAtExit::Run(UnloadingAtExit::Handler::kRegisteredFirst,
                         UnloadingAtExit::Destruct::kBefore);
}

FRESH_PROCESS_TEST(OwnOpenSsl, MayBeUnloadedInAnExitHandlerThatDestructs) {
    UnloadingAtExit::Run(UnloadingAtExit::Handler::kRegisteredFirst,
                         UnloadingAtExit::Destruct::kInHandler);
}

FRESH_PROCESS_TEST(OwnOpenSsl, MayBeUnloadedInAnExitHandlerBeforeTheLibrarysOwn) {
    UnloadingAtExit::Run(UnloadingAtExit::Handler::kRegisteredLast,
                         UnloadingAtExit::Destruct::kBefore);
}

FRESH_PROCESS_TEST(OwnOpenSsl, MayBeUnloadedInAnEarlyExitHandlerThatDestructs) {
    UnloadingAtExit::Run(UnloadingAtExit::Handler::kRegisteredLast,
                         UnloadingAtExit::Destruct::kInHandler);
}

}  // namespace
}  // namespace conformance
