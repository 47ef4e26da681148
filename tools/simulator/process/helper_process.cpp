#include "process/helper_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "process/process.h"

namespace brennix {

HelperProcess::HelperProcess(std::string name, const std::vector<std::string>& command,
                             const std::map<std::string, std::string>& environment)
    : name_(std::move(name)) {
    int to[2];
    int from[2];
    if (::pipe2(to, O_CLOEXEC) != 0 || ::pipe2(from, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe to " + name_);
    }
    process_ = StartProcess(command, environment,
                            {.input = to[0], .output = from[1], .silent_errors = true});
    ::close(to[0]);
    ::close(from[1]);
    to_ = to[1];
    from_ = from[0];
}

HelperProcess::~HelperProcess() {
    ::close(to_);
    ::waitpid(process_, nullptr, 0);
    ::close(from_);
}

std::string HelperProcess::ReadLine(int limit_ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
    std::string line;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd ready = {.fd = from_, .events = POLLIN, .revents = 0};
        if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) == 0) {
            throw std::runtime_error(name_ + " does not answer");
        }
        char c = 0;
        if (::read(from_, &c, 1) != 1) throw std::runtime_error(name_ + " has ended");
        if (c == '\n') return line;
        if (c != '\r') line.push_back(c);
    }
}

std::string HelperProcess::Ask(const std::string& line, int limit_ms) {
    const std::string text = line + "\n";
    if (::write(to_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error(name_ + " has ended");
    }
    const std::string answer = ReadLine(limit_ms);
    if (!answer.starts_with("ok")) throw std::runtime_error(name_ + ": " + line + ": " + answer);
    return answer.substr(std::min<std::size_t>(3, answer.size()));
}

}  // namespace brennix
