#include "bluez/private_bus.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "process/process.h"

namespace brennix {

PrivateBus::PrivateBus() {
    std::array<int, 2> ends;
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    process_ = StartProcess({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog",
                             "--address=unix:tmpdir=/tmp", "--print-address"},
                            {}, {.output = ends[1], .silent_errors = true});
    ::close(ends[1]);
    char letter = 0;
    while (::read(ends[0], &letter, 1) == 1 && letter != '\n')
        address_.push_back(letter);
    ::close(ends[0]);
    if (address_.empty()) throw std::runtime_error("dbus-daemon did not start");
}

PrivateBus::~PrivateBus() {
    ::kill(process_, SIGTERM);
    ::waitpid(process_, nullptr, 0);
}

}  // namespace brennix
