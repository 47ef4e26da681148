#include <fcntl.h>
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

}  // namespace tarvik::test
