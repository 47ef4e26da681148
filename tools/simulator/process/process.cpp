#include "process/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <unistd.h>

#include <stdexcept>

namespace brennix {

namespace {

std::vector<std::string> MergedEnvironment(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!changes.contains(text.substr(0, text.find('=')))) merged.push_back(text);
    }
    for (const auto& [name, value] : changes) {
        if (!value.empty()) merged.push_back(name + "=" + value);
    }
    return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

pid_t StartProcess(const std::vector<std::string>& command,
                   const std::map<std::string, std::string>& environment,
                   const ProcessOptions& options) {
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = MergedEnvironment(environment);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    if (options.input >= 0) ::posix_spawn_file_actions_adddup2(&actions, options.input, 0);
    if (options.output >= 0) ::posix_spawn_file_actions_adddup2(&actions, options.output, 1);
    if (options.silent_errors) {
        ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    }
    // The simulator blocks signals and waits for them; its children get them as usual.
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    ::sigemptyset(&none);
    sigset_t restored;
    ::sigemptyset(&restored);
    ::sigaddset(&restored, SIGPIPE);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &restored);
    int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (options.own_group) flags |= POSIX_SPAWN_SETPGROUP;
    ::posix_spawnattr_setflags(&attributes, static_cast<short>(flags));

    pid_t process = -1;
    const int error = ::posix_spawnp(&process, arguments[0].c_str(), &actions, &attributes,
                                     Pointers(arguments).data(), Pointers(variables).data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error(command[0] + ": " + ::strerror(error));
    return process;
}

}  // namespace brennix
