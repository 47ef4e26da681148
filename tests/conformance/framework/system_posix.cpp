#include "conformance/framework/system.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "conformance/framework/surroundings.h"

namespace conformance {

const char kPathSeparator = '/';
const bool kTerminatesThreads = false;
const char kLibraryFileName[] = "libtarvik_dpdu_x64.so";

void* LoadLibraryFile(const std::string& path, std::string* error) {
    void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) *error = ::dlerror();
    return library;
}

void* FindFunction(void* library, const char* name) { return ::dlsym(library, name); }

bool UnloadLibraryFile(void* library) { return ::dlclose(library) == 0; }

std::uint32_t ProcessId() { return static_cast<std::uint32_t>(::getpid()); }

std::string ProgramPath() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

void SetVariable(const std::string& name, const std::string& value) {
    if (value.empty()) {
        ::unsetenv(name.c_str());
    } else {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
}

namespace {

std::vector<std::string> EnvironmentWith(const Variables& variables) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        bool replaced = false;
        for (const auto& [name, value] : variables) {
            replaced = replaced || text.compare(0, name.size() + 1, name + "=") == 0;
        }
        if (!replaced) entries.push_back(text);
    }
    for (const auto& [name, value] : variables) {
        if (!value.empty()) entries.push_back(name + "=" + value);
    }
    return entries;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

int RunProgramAgain(const std::vector<std::string>& arguments, const Variables& variables,
                    const std::string& output_file) {
    std::vector<std::string> command = {ProgramPath()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment = EnvironmentWith(variables);
    const std::vector<char*> argv = Pointers(command);
    const std::vector<char*> envp = Pointers(environment);

    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_addopen(&files, 1, output_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                       0600);
    ::posix_spawn_file_actions_adddup2(&files, 1, 2);
    pid_t process = 0;
    const int error =
        ::posix_spawn(&process, command[0].c_str(), &files, nullptr, argv.data(), envp.data());
    ::posix_spawn_file_actions_destroy(&files);
    if (error != 0) return -1;
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

namespace {

std::uint64_t EntriesIn(const char* folder) {
    std::uint64_t entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
        ++entries;
    }
    return entries;
}

}  // namespace

ProcessFigures MeasureProcess() {
    ::malloc_trim(0);  // what is free in the heap counts as given back
    std::ifstream statm("/proc/self/statm");
    std::uint64_t total_pages = 0;
    std::uint64_t resident_pages = 0;
    std::uint64_t file_pages = 0;  // part of those: code that runs for the first time adds some
    statm >> total_pages >> resident_pages >> file_pages;
    const auto page_size = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    return {EntriesIn("/proc/self/task"), EntriesIn("/proc/self/fd"),
            (resident_pages - file_pages) * page_size};
}

// Of all cancellable calls, the thread sanitizer handles only a wait for a condition: after any
// other it would miss the locks that the unwound thread takes.
void BlockForever() {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t never = PTHREAD_COND_INITIALIZER;
    ::pthread_mutex_lock(&mutex);
    for (;;)
        ::pthread_cond_wait(&never, &mutex);
}

std::uint32_t ThreadId() { return static_cast<std::uint32_t>(::syscall(SYS_gettid)); }

std::uint64_t TickMs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

void UseTempFolder(const std::string& folder) { SetVariable("TMPDIR", folder); }

void UseUserFolder(const std::string& folder) { SetVariable("XDG_CONFIG_HOME", folder); }

std::string SystemTempFolder() {
    const char* folder = std::getenv("TMPDIR");
    return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

WriteProtection::WriteProtection(const std::string& file, const std::string& private_folder)
    : user_(::geteuid()) {
    ::chmod(file.c_str(), 0444);
    if (user_ != 0) return;
    // Permissions do not restrict root.
    constexpr uid_t kNobody = 65534;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(private_folder)) {
        if (::chown(entry.path().c_str(), kNobody, kNobody) != 0) std::perror("chown");
    }
    if (::chown(private_folder.c_str(), kNobody, kNobody) != 0) std::perror("chown");
    if (::seteuid(kNobody) != 0) std::perror("seteuid");
}

WriteProtection::~WriteProtection() {
    if (::geteuid() != user_ && ::seteuid(user_) != 0) std::perror("seteuid");
}

void MakeImpossible(const std::string& file) {
    std::filesystem::remove_all(std::filesystem::path(file).parent_path());
}

// An open file can be deleted, and the leak checker needs the library to the end, because it looks
// for pointers in the library's variables.
void PrepareDeletion(void*) {}

bool ConsoleIsStandardOutput() { return true; }

int RedirectStdout(const std::string& file) {
    const int saved = ::dup(1);
    const int target = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (target >= 0) {
        ::dup2(target, 1);
        ::close(target);
    }
    return saved;
}

void RestoreStdout(int saved) {
    ::dup2(saved, 1);
    ::close(saved);
}

// ---- debugger output: the system log -----------------------------------------------------------

namespace {

std::mutex debug_output_lock;
std::string debug_output;
bool collecting = false;

__attribute__((format(printf, 2, 0))) void AddDebugOutput(int priority, const char* format,
                                                          std::va_list arguments) {
    char text[2048];
    std::vsnprintf(text, sizeof text, format, arguments);
    const std::lock_guard hold(debug_output_lock);
    if (collecting && LOG_PRI(priority) == LOG_DEBUG) debug_output += text;
}

}  // namespace

void CollectDebugOutput(bool on) {
    SetVariable("DPDU_DEBUG_OUTPUT", on ? "syslog" : "");
    const std::lock_guard hold(debug_output_lock);
    collecting = on;
    debug_output.clear();
}

std::string DebugOutput() {
    const std::lock_guard hold(debug_output_lock);
    return debug_output;
}

// ---- warnings ----------------------------------------------------------------------------------

struct WarningBoxes::State {
    std::string caption;
    std::string file;
    int saved;
};

WarningBoxes::WarningBoxes(const std::string& caption)
    : state_(new State{caption, JoinPath(TempFolder(), "warnings.txt"), ::dup(2)}) {
    const int target = ::open(state_->file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ::dup2(target, 2);
    ::close(target);
}

WarningBoxes::~WarningBoxes() {
    ::dup2(state_->saved, 2);
    ::close(state_->saved);
}

std::vector<std::string> WarningBoxes::Texts() const {
    const std::string begin = state_->caption + "\n";
    const std::string printed = ReadFile(state_->file);
    std::vector<std::string> texts;
    for (std::size_t at = printed.find(begin); at != std::string::npos;) {
        at += begin.size();
        const std::size_t next = printed.find(begin, at);
        const std::size_t end = std::min(next, printed.size());
        texts.push_back(printed.substr(at, end - at - 1));  // without its line end
        at = next;
    }
    return texts;
}

// ---- sockets -----------------------------------------------------------------------------------

bool Connection::Open(std::uint16_t port) {
    Close();
    const int handle = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (handle < 0) return false;
    const int on = 1;
    ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(handle);
        return false;
    }
    socket_ = handle;
    return true;
}

void Connection::Close() {
    if (socket_ != kNone) ::close(static_cast<int>(socket_));
    socket_ = kNone;
}

bool Connection::Send(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::send(static_cast<int>(socket_), bytes.data() + done,
                                   bytes.size() - done, MSG_NOSIGNAL);
        if (put <= 0) return false;
        done += static_cast<std::size_t>(put);
    }
    return true;
}

bool Connection::Receive(std::string* bytes, int timeout_ms) {
    pollfd readable = {static_cast<int>(socket_), POLLIN, 0};
    if (::poll(&readable, 1, timeout_ms) <= 0) return false;
    char block[4096];
    const ssize_t got = ::recv(static_cast<int>(socket_), block, sizeof block, 0);
    if (got <= 0) return false;
    bytes->append(block, static_cast<std::size_t>(got));
    return true;
}

// Its queue is full: further connections are dropped.
SilentPort::SilentPort() {
    constexpr int kEnough = 4;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool listens = ::bind(listener, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                         ::listen(listener, 0) == 0 &&
                         ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    EXPECT_TRUE(listens) << std::strerror(errno);
    number_ = ntohs(address.sin_port);
    sockets_.push_back(listener);
    for (int i = 0; i < kEnough; ++i) {
        const int filler = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        // Those without room in the queue stay pending.
        const int connected = ::connect(filler, reinterpret_cast<const sockaddr*>(&address), size);
        EXPECT_TRUE(connected == 0 || errno == EINPROGRESS) << std::strerror(errno);
        sockets_.push_back(filler);
    }
}

SilentPort::~SilentPort() {
    for (const std::intptr_t handle : sockets_)
        ::close(static_cast<int>(handle));
}

}  // namespace conformance

// The library's calls of it end here: the program's symbols precede those of the C library.

extern "C" __attribute__((visibility("default"), format(printf, 2, 3))) void syslog(
    int priority, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    conformance::AddDebugOutput(priority, format, arguments);
    va_end(arguments);
}

// What it is called where the compiler adds checks of formats and sizes.
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) void __syslog_chk(
    int priority, int, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    conformance::AddDebugOutput(priority, format, arguments);
    va_end(arguments);
}
