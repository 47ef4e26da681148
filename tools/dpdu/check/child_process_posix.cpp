#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

#include "check/child_process.h"
#include "console/failure.h"
#include "text/names.h"

namespace dpdu::check {
namespace {

constexpr char kOwnProgram[] = "/proc/self/exe";
constexpr std::chrono::milliseconds kEndPoll{5};

[[noreturn]] void Refuse(const std::string& program, int error) {
    throw Failure("the program '" + program + "' cannot be started: " + std::strerror(error));
}

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return number_; }
    void Set(int number) {
        Close();
        number_ = number;
    }
    void Close() {
        if (number_ >= 0) ::close(number_);
        number_ = -1;
    }

private:
    int number_;
};

struct Pipe {
    Descriptor reading;
    Descriptor writing;

    Pipe() {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw Failure(std::string("no pipe for another program: ") + std::strerror(errno));
        }
        reading.Set(ends[0]);
        writing.Set(ends[1]);
    }
};

struct Streams {
    int input;
    int output;
    int failure;  // gets errno if the program cannot be started
};

[[noreturn]] void Become(char* const* arguments, const Streams& streams, pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(1);  // it has ended in the meantime
    ::signal(SIGPIPE, SIG_DFL);             // it would inherit that this program ignores it
    ::dup2(streams.input, STDIN_FILENO);
    ::dup2(streams.output, STDOUT_FILENO);
    ::execvp(arguments[0], arguments);
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(streams.failure, &error, sizeof error);
    ::_exit(127);
}

// The end of the pipe, without errno, comes when the program has replaced this one.
int ReadFailure(int pipe) {
    int error = 0;
    while (::read(pipe, &error, sizeof error) < 0 && errno == EINTR) {
    }
    return error;
}

// A child that has ended reads nothing; how it ended is asked later.
void WriteAll(int pipe, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(pipe, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return;
        done += static_cast<std::size_t>(count);
    }
}

std::string EndText(int status) {
    if (WIFSIGNALED(status)) {
        const int number = WTERMSIG(status);
        return "signal " + std::to_string(number) + ", " + ::strsignal(number);
    }
    const int code = WEXITSTATUS(status);
    return code == 0 ? "" : "exit code " + std::to_string(code);
}

}  // namespace

std::string OwnProgram() { return kOwnProgram; }

struct ChildProcess::System {
    pid_t id = 0;
    Pipe output;
    std::optional<int> status;  // how it ended

    bool HasEnded() {
        int ended = 0;
        if (!status && ::waitpid(id, &ended, WNOHANG) == id) status = ended;
        return status.has_value();
    }
};

ChildProcess::ChildProcess(const Command& command, const std::string& input)
    : system_(std::make_unique<System>()) {
    std::vector<char*> arguments = {const_cast<char*>(command.program.c_str())};
    for (const std::string& argument : command.arguments)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    Pipe pipe;
    Pipe failure;
    const Streams streams = {pipe.reading.Get(), system_->output.writing.Get(),
                             failure.writing.Get()};
    const pid_t parent = ::getpid();
    system_->id = ::fork();
    if (system_->id < 0) Refuse(command.program, errno);
    if (system_->id == 0) Become(arguments.data(), streams, parent);
    pipe.reading.Close();
    failure.writing.Close();
    system_->output.writing.Close();
    if (const int error = ReadFailure(failure.reading.Get())) {
        ::waitpid(system_->id, nullptr, 0);
        Refuse(command.program, error);
    }
    WriteAll(pipe.writing.Get(), input);
}

ChildProcess::~ChildProcess() {
    if (system_->HasEnded()) return;
    ::kill(system_->id, SIGKILL);
    ::waitpid(system_->id, nullptr, 0);
}

ChildProcess::Read ChildProcess::ReadSome(std::chrono::milliseconds limit, std::string* output) {
    pollfd wait = {system_->output.reading.Get(), POLLIN, 0};
    if (::poll(&wait, 1, static_cast<int>(limit.count())) <= 0) return Read::kNothing;
    std::array<char, 65536> block;
    const ssize_t count = ::read(wait.fd, block.data(), block.size());
    if (count < 0) return errno == EINTR ? Read::kNothing : Read::kEnd;
    output->append(block.data(), static_cast<std::size_t>(count));
    return count == 0 ? Read::kEnd : Read::kBytes;
}

std::optional<std::string> ChildProcess::WaitForEnd(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!system_->HasEnded()) {
        if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(kEndPoll);
    }
    return EndText(*system_->status);
}

void BecomeChild() {
    ::signal(SIGINT, SIG_IGN);
    ::signal(SIGHUP, SIG_IGN);
}

}  // namespace dpdu::check
