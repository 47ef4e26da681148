#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "process.h"

namespace {

void Redirect(const std::string& path, int descriptor, int flags) {
    const int file = open(path.c_str(), flags, 0600);
    if (file < 0 || dup2(file, descriptor) < 0) _exit(127);
    close(file);
}

void RedirectToPipeWithoutReader(int descriptor) {
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], descriptor) < 0) _exit(127);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace

ProcessHandle StartProcess(const ProcessSetup& setup) {
    std::vector<char*> arguments = {const_cast<char*>(setup.program.c_str())};
    for (const std::string& text : setup.arguments) {
        arguments.push_back(const_cast<char*>(text.c_str()));
    }
    arguments.push_back(nullptr);

    const pid_t child = fork();
    if (child != 0) return child > 0 ? child : 0;
    for (const auto& [name, value] : setup.environment) {
        if (value.empty()) {
            unsetenv(name.c_str());
        } else {
            setenv(name.c_str(), value.c_str(), 1);
        }
    }
    constexpr int kNew = O_WRONLY | O_CREAT | O_TRUNC;
    Redirect(setup.input_path.empty() ? "/dev/null" : setup.input_path, STDIN_FILENO, O_RDONLY);
    if (setup.output_path.empty()) {
        RedirectToPipeWithoutReader(STDOUT_FILENO);
    } else {
        Redirect(setup.output_path, STDOUT_FILENO, kNew);
    }
    Redirect(setup.error_path, STDERR_FILENO, kNew);
    execv(setup.program.c_str(), arguments.data());
    _exit(127);
}

bool InterruptProcess(ProcessHandle process) {
    return kill(static_cast<pid_t>(process), SIGINT) == 0;
}

int WaitForProcess(ProcessHandle process) {
    int status = 0;
    if (waitpid(static_cast<pid_t>(process), &status, 0) < 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

unsigned long OwnProcessId() { return static_cast<unsigned long>(getpid()); }
