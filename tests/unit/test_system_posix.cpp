#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "unit/test_system.h"

namespace tarvik::test {

const bool kTerminatesThreads = false;

void SetVariable(const char* name, const char* value) {
    if (value != nullptr) {
        ::setenv(name, value, 1);
    } else {
        ::unsetenv(name);
    }
}

TemporaryFolderVariable::TemporaryFolderVariable(const std::string& folder) {
    const char* before = std::getenv("TMPDIR");
    before_ = before != nullptr ? before : "";
    SetVariable("TMPDIR", folder.c_str());
}

TemporaryFolderVariable::~TemporaryFolderVariable() {
    SetVariable("TMPDIR", before_.empty() ? nullptr : before_.c_str());
}

std::FILE* OpenUnreadable(const std::string& path) { return std::fopen(path.c_str(), "wb"); }

std::string CurrentThreadName() {
    char name[16] = {};
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    return name;
}

std::string KeptThreadName(const std::string& description) { return description.substr(0, 15); }

namespace {

constexpr uid_t kNobody = 65534;

// Root may write whatever the mode, so it becomes another user meanwhile.
class ReadOnlyMode : public WriteProtection {
public:
    explicit ReadOnlyMode(const std::string& path) : path_(path) {
        ::chmod(path_.c_str(), 0444);
        if (::geteuid() == 0) laid_down_ = ::seteuid(kNobody) == 0;
    }
    ~ReadOnlyMode() override {
        if (laid_down_ && ::seteuid(0) != 0) std::abort();
        ::chmod(path_.c_str(), 0644);
    }

private:
    std::string path_;
    bool laid_down_ = false;
};

int ExitCodeOf(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

std::unique_ptr<WriteProtection> ProtectFromWriting(const std::string& path) {
    return std::make_unique<ReadOnlyMode>(path);
}

ChildResult RunChild(const std::string& name) {
    char output[] = "/tmp/tarvik_child_XXXXXX";
    const int file = ::mkstemp(output);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, file, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, file, STDERR_FILENO);
    std::string program = "test";
    std::string option = kChildOption + name;
    char* arguments[] = {program.data(), option.data(), nullptr};
    pid_t child = 0;
    const int error =
        ::posix_spawn(&child, "/proc/self/exe", &actions, nullptr, arguments, environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ChildResult result{error == 0 ? ExitCodeOf(child) : -1000, ""};
    std::ifstream text(output);
    result.output.assign(std::istreambuf_iterator<char>(text), {});
    ::close(file);
    ::unlink(output);
    return result;
}

void CloseMessageBoxOf(const std::string&, const std::function<void()>& show) { show(); }

std::string PrintedMessageBox(const std::string& text, const std::string& caption) {
    return caption + "\n" + text + "\n";
}

bool MakeConsole() { return false; }

bool OutputIsOnConsole() { return false; }

std::string PrintedOnConsole(const std::string& text) { return text; }

// A pipe in packet mode.
WriteCounter::WriteCounter() {
    int ends[2];
    if (::pipe2(ends, O_DIRECT | O_CLOEXEC) != 0) return;
    read_end_ = ends[0];
    std::fflush(stdout);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    standard_ = ::dup(STDOUT_FILENO);
    ::dup2(ends[1], STDOUT_FILENO);
    ::close(ends[1]);
}

WriteCounter::~WriteCounter() {
    if (!IsUsable()) return;
    ::dup2(standard_, STDOUT_FILENO);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    ::close(standard_);
    ::close(static_cast<int>(read_end_));
}

std::string WriteCounter::Next() {
    std::string text(65'536, '\0');
    const ssize_t size = ::read(static_cast<int>(read_end_), text.data(), text.size());
    text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    std::erase(text, '\r');
    return text;
}

bool WriteCounter::HasNext() {
    pollfd readable = {static_cast<int>(read_end_), POLLIN, 0};
    return ::poll(&readable, 1, 0) > 0;
}

}  // namespace tarvik::test
