// An application that has closed standard input, output and error.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "closed_standard_streams.h"
#include "platform/console.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/user.h"
#include "transport/ble/bluez_library.h"
#include "transport/cloud/tcp_system.h"
#include "transport/cloud/tls_library.h"
#include "transport/cloud/websocket_client.h"
#include "transport/serial/port_discovery.h"
#include "transport/serial/serial_port.h"
#include "unit/faults/system_call_fault.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

std::string FileOfThisProcess(const char* name) {
    return (std::filesystem::temp_directory_path() / (name + std::to_string(::getpid()))).string();
}

bool ReplacesAFile() {
    const std::string from = FileOfThisProcess("tarvik-from-");
    const std::string to = FileOfThisProcess("tarvik-to-");
    std::FILE* stream = OsOpenStream(from.c_str(), "w");
    if (stream == nullptr) return false;
    std::fclose(stream);
    return OsFileWritable(from.c_str()) && OsReplaceFile(from.c_str(), to.c_str()) &&
           OsRemoveFile(to.c_str());
}

bool WritesATrace() {
    const std::string path = FileOfThisProcess("tarvik-trace-");
    OsAppendFile* file = nullptr;
    if (OsAppendFileCreate(path.c_str(), &file) != CreateFileResult::kCreated) return false;
    OsAppendFileClose(file);
    return OsRemoveFile(path.c_str());
}

bool FindsItsFolder() {
    char folder[kMaxPath];
    return OsLibraryFolder(folder, sizeof folder);
}

bool FindsItsUser() {
    char name[256];
    OsUserName(name, sizeof name);
    return true;
}

bool LooksForADebugger() {
    OsDebuggerPresent();
    return true;
}

bool OpensASocket() {
    addrinfo* addresses = nullptr;
    if (SystemResolve("127.0.0.1", "80", &addresses) != 0) return false;
    const SystemSocket socket = SystemOpenSocket(*addresses);
    SystemFreeAddresses(addresses);
    if (socket == kNoSocket) return false;
    SystemClose(socket);
    return true;
}

bool MakesAWebSocketClient() {
    WebSocketClient* client = CreateWebSocketClient();
    if (client == nullptr) return false;
    CloseWebSocket(client, nullptr);
    return true;
}

bool ReadsTheIssuers() {
    SSL_CTX* context = CreateTlsClientContext();
    TrustSystemIssuers(context);
    ::SSL_CTX_free(context);
    return true;
}

bool LooksForPorts() {
    DiscoverPorts([](void*, const ListedPort&) {}, nullptr);
    return true;
}

// Of a group that this process is not in; an ordinary user cannot make one.
bool AdvisesOnAPort() {
    const std::string path = FileOfThisProcess("tarvik-port-");
    std::ofstream(path).close();
    ::chmod(path.c_str(), 0660);
    const int owned = ::chown(path.c_str(), static_cast<uid_t>(-1), 54'321);
    char text[256];
    AdviseOnPort({1, path.c_str(), PortReadiness::kNoAccess}, text, sizeof text);
    return OsRemoveFile(path.c_str()) && owned <= 0;
}

bool OpensAPort() {
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    char path[64];
    if (::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0 ||
        ::ptsname_r(terminal, path, sizeof path) != 0) {
        return false;
    }
    PortHandle* port = OpenPort(path);
    if (port == nullptr) return false;
    PortTransfer* transfer = CreateTransfer(port, TransferKind::kReceive);
    if (transfer == nullptr) return false;
    CloseTransfer(transfer);
    ClosePort(port);
    ::close(terminal);
    return true;
}

bool LoadsTheBluetoothLibrary() {
    LoadBluezLibrary();
    return true;
}

// Only standard output is there.
bool PrintsIntoAPipe() {
    int ends[2];
    if (::pipe(ends) != 0 || ::fcntl(ends[0], F_DUPFD, ClosedStreams::kCount) < 0) return false;
    if (ends[1] != STDOUT_FILENO) ::dup2(ends[1], STDOUT_FILENO);
    ::close(STDIN_FILENO);
    OsPrint("text\n", 5);
    ::close(STDOUT_FILENO);
    return true;
}

bool PrintsIntoAPipeWithoutProc() {
    constexpr int kNumbersTaken = 3;  // 0, 2, and one that is not needed
    const test::SystemCallFault no_proc("open", EACCES, test::SystemCallFault::kAlways,
                                        kNumbersTaken);
    return PrintsIntoAPipe();
}

constexpr struct {
    const char* name;
    bool (*open)();
} kOpeners[] = {
    {"ReplacesAFile", ReplacesAFile},
    {"WritesATrace", WritesATrace},
    {"FindsItsFolder", FindsItsFolder},
    {"FindsItsUser", FindsItsUser},
    {"LooksForADebugger", LooksForADebugger},
    {"OpensASocket", OpensASocket},
    {"MakesAWebSocketClient", MakesAWebSocketClient},
    {"ReadsTheIssuers", ReadsTheIssuers},
    {"LooksForPorts", LooksForPorts},
    {"AdvisesOnAPort", AdvisesOnAPort},
    {"OpensAPort", OpensAPort},
    {"LoadsTheBluetoothLibrary", LoadsTheBluetoothLibrary},
    {"PrintsIntoAPipe", PrintsIntoAPipe},
    {"PrintsIntoAPipeWithoutProc", PrintsIntoAPipeWithoutProc},
};

// Prints what opened a descriptor while the number of a standard one was free.
const test::ChildBody kAllOpeners("all-openers", [] {
    for (const auto& opener : kOpeners) {
        bool done = false;
        std::string culprit;
        {
            const ClosedStreams closed;
            const test::LowDescriptorWatch watch;
            done = opener.open();
            culprit = watch.Culprit();
        }
        if (!done) std::printf("%s does not work\n", opener.name);
        if (!culprit.empty()) std::printf("%s: %s\n", opener.name, culprit.c_str());
    }
    return 0;
});

TEST(StandardDescriptors, AreNotTakenByWhatTheLibraryOpens) {
    const test::ChildResult child = test::RunChild("all-openers");
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.output, "");
}

}  // namespace
}  // namespace tarvik
