#include "wine/wine_server.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "process/process.h"

namespace brennix {

namespace {

constexpr auto kStartLimit = std::chrono::seconds(10);
constexpr auto kLookInterval = std::chrono::milliseconds(5);

}  // namespace

void StartWineServer(const std::map<std::string, std::string>& environment) {
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nothing < 0) throw std::runtime_error("/dev/null cannot be opened");
    // In the foreground it stays in this session. It has its own process group, so that an
    // interrupt from the keyboard does not reach it.
    const pid_t server = StartProcess(
        {"wineserver", "-f", "-p30"}, environment,
        {.input = nothing, .output = nothing, .silent_errors = true, .own_group = true});
    ::close(nothing);

    // Its working folder is the one with its socket, wherever that is on this system.
    const std::string socket = "/proc/" + std::to_string(server) + "/cwd/socket";
    const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
    while (::access(socket.c_str(), F_OK) != 0) {
        if (::waitpid(server, nullptr, WNOHANG) == server) return;  // there was one already
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("wineserver does not start");
        }
        std::this_thread::sleep_for(kLookInterval);
    }
}

}  // namespace brennix
