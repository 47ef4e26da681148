#include "conformance/framework/system.h"

#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <fcntl.h>
#include <io.h>
#include <psapi.h>
#include <shlobj.h>
#include <sys/stat.h>
#include <tlhelp32.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "conformance/framework/surroundings.h"
#include "imports_win32.h"
#include "wide_text.h"

namespace conformance {

const char kPathSeparator = '\\';
const bool kTerminatesThreads = true;
const char kLibraryFileName[] = "tarvik_dpdu_x64.dll";

namespace {

// In the library's table of imported functions, some of these tests' own replace the system's.

// The user's folder is in the registry, for all programs. So that programs that run at the same
// time do not share it, the library under test gets this program's private folder instead.
std::string user_folder;

HRESULT WINAPI PrivateFolderPath(HWND, int, HANDLE, DWORD, LPWSTR path) {
    const std::wstring wide = Wide(user_folder);
    path[wide.copy(path, MAX_PATH - 1)] = L'\0';
    return S_OK;
}

std::mutex debug_output_lock;
std::string debug_output;
bool collecting = false;

// Not every system gives a debugger more than the characters of the ANSI code page.
void WINAPI CollectingDebugOutput(LPCWSTR text) {
    {
        const std::lock_guard hold(debug_output_lock);
        if (collecting) debug_output += Narrow(text);
    }
    ::OutputDebugStringW(text);
}

struct Replacement {
    const char* name;
    void* function;
};
const Replacement kReplacements[] = {
    {"SHGetFolderPathW", reinterpret_cast<void*>(&PrivateFolderPath)},
    {"OutputDebugStringW", reinterpret_cast<void*>(&CollectingDebugOutput)},
};

}  // namespace

void* LoadLibraryFile(const std::string& path, std::string* error) {
    wchar_t full[MAX_PATH];
    const DWORD length = ::GetFullPathNameW(Wide(path).c_str(), MAX_PATH, full, nullptr);
    HMODULE library = length > 0 && length < MAX_PATH ? ::LoadLibraryW(full) : nullptr;
    if (library == nullptr) {
        *error = "error " + std::to_string(::GetLastError());
        return nullptr;
    }
    for (const Replacement& replacement : kReplacements)
        ReplaceImport(library, replacement.name, replacement.function);
    return library;
}

void* FindFunction(void* library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

bool UnloadLibraryFile(void* library) { return ::FreeLibrary(static_cast<HMODULE>(library)) != 0; }

std::uint32_t ProcessId() { return ::GetCurrentProcessId(); }

std::string ProgramPath() {
    wchar_t path[MAX_PATH];
    return Narrow({path, ::GetModuleFileNameW(nullptr, path, MAX_PATH)});
}

// Both the process's environment, which the library reads, and the C runtime's copy of it.
void SetVariable(const std::string& name, const std::string& value) {
    ::SetEnvironmentVariableW(Wide(name).c_str(), value.empty() ? nullptr : Wide(value).c_str());
    ::_wputenv(Wide(name + "=" + value).c_str());
}

namespace {

// Variables are passed on by setting them for a moment.
class TemporaryVariables {
public:
    explicit TemporaryVariables(const Variables& variables) {
        for (const auto& [name, value] : variables) {
            const wchar_t* before = ::_wgetenv(Wide(name).c_str());
            before_.emplace_back(name, before == nullptr ? "" : Narrow(before));
            SetVariable(name, value);
        }
    }
    ~TemporaryVariables() {
        for (const auto& [name, value] : before_)
            SetVariable(name, value);
    }
    TemporaryVariables(const TemporaryVariables&) = delete;
    TemporaryVariables& operator=(const TemporaryVariables&) = delete;

private:
    Variables before_;
};

HANDLE OpenForOutput(const std::string& file) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    return ::CreateFileW(Wide(file).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// The new process inherits the variables of this one, so only one starts at a time. On a busy
// machine Wine sometimes refuses a start that succeeds a moment later.
bool StartWith(const Variables& variables, std::wstring* command, STARTUPINFOW* start,
               PROCESS_INFORMATION* process) {
    constexpr int kAttempts = 3;
    static std::mutex starting;
    const std::lock_guard hold(starting);
    const TemporaryVariables during_start(variables);
    for (int attempt = 1;; ++attempt) {
        if (::CreateProcessW(nullptr, command->data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                             start, process)) {
            return true;
        }
        std::fprintf(stderr, "CreateProcess: error %lu, attempt %d\n", ::GetLastError(), attempt);
        if (attempt == kAttempts) return false;
        ::Sleep(200);
    }
}

}  // namespace

int RunProgramAgain(const std::vector<std::string>& arguments, const Variables& variables,
                    const std::string& output_file) {
    std::string command = "\"" + ProgramPath() + "\"";
    for (const std::string& argument : arguments)
        command += " \"" + argument + "\"";
    std::wstring wide_command = Wide(command);
    const HANDLE output = OpenForOutput(output_file);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    start.hStdOutput = output;
    start.hStdError = output;
    PROCESS_INFORMATION process{};
    const bool started = StartWith(variables, &wide_command, &start, &process);
    ::CloseHandle(output);
    if (!started) return -1;
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return static_cast<int>(code);
}

namespace {

std::uint64_t CountThreads() {
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    std::uint64_t threads = 0;
    for (BOOL more = ::Thread32First(snapshot, &entry); more;
         more = ::Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++threads;
    }
    ::CloseHandle(snapshot);
    return threads;
}

// Counted in the system's list: not every system reports just the number.
std::uint64_t CountHandles() {
    struct Handle {
        ULONG process;
        ULONG others[5];
    };
    static_assert(sizeof(Handle) == 24);
    constexpr int kHandleInformation = 16;
    constexpr std::size_t kFirstHandle = 8;
    using Query = LONG(NTAPI*)(int, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<char> list(4 << 20);
    ULONG size = 0;
    if (query(kHandleInformation, list.data(), static_cast<ULONG>(list.size()), &size) != 0) {
        return 0;
    }
    ULONG count = 0;
    std::memcpy(&count, list.data(), sizeof count);
    std::uint64_t own = 0;
    for (ULONG i = 0; i < count; ++i) {
        Handle handle;
        std::memcpy(&handle, list.data() + kFirstHandle + i * sizeof handle, sizeof handle);
        if (handle.process == ProcessId()) ++own;
    }
    return own;
}

}  // namespace

ProcessFigures MeasureProcess() {
    PROCESS_MEMORY_COUNTERS memory{};
    memory.cb = sizeof memory;
    ::K32GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory);
    return {CountThreads(), CountHandles(), memory.PagefileUsage};
}

void BlockForever() {
    for (;;)
        ::Sleep(INFINITE);
}

std::uint32_t ThreadId() { return ::GetCurrentThreadId(); }

std::uint64_t TickMs() { return ::GetTickCount64(); }

void UseTempFolder(const std::string& folder) {
    SetVariable("TMP", folder);
    SetVariable("TEMP", folder);
}

void UseUserFolder(const std::string& folder) { user_folder = folder; }

std::string SystemTempFolder() {
    wchar_t folder[MAX_PATH];
    return Narrow({folder, ::GetTempPathW(MAX_PATH, folder)});
}

// An open file that cannot be opened for writing elsewhere.
WriteProtection::WriteProtection(const std::string& file, const std::string&)
    : file_(::CreateFileW(Wide(file).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                          FILE_ATTRIBUTE_NORMAL, nullptr)) {}

WriteProtection::~WriteProtection() { ::CloseHandle(file_); }

// The folder of a loaded library cannot be deleted, but a folder can take the file's name.
void MakeImpossible(const std::string& file) { ::CreateDirectoryW(Wide(file).c_str(), nullptr); }

void PrepareDeletion(void* library) { ::FreeLibrary(static_cast<HMODULE>(library)); }

bool ConsoleIsStandardOutput() { return false; }

int RedirectStdout(const std::string& file) {
    const int saved = ::_dup(1);
    const int target = ::_wopen(Wide(file).c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY,
                                _S_IREAD | _S_IWRITE);
    if (target >= 0) {
        ::_dup2(target, 1);
        ::_close(target);
    }
    return saved;
}

void RestoreStdout(int saved) {
    ::_dup2(saved, 1);
    ::_close(saved);
}

// ---- debugger output ---------------------------------------------------------------------------

void CollectDebugOutput(bool on) {
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
    std::atomic<bool> ended{false};
    std::mutex lock;
    std::vector<std::string> texts;  // guarded by lock
    std::thread watcher;
};

namespace {

BOOL CALLBACK FindText(HWND child, LPARAM text) {
    char kind[16] = "";
    ::GetClassNameA(child, kind, sizeof kind);
    char line[2048] = "";
    if (::_stricmp(kind, "Static") == 0) ::GetWindowTextA(child, line, sizeof line);
    if (line[0] != '\0') *reinterpret_cast<std::string*>(text) = line;
    return TRUE;
}

// Empty: the box is not complete yet.
std::string TextOf(HWND box) {
    std::string text;
    ::EnumChildWindows(box, FindText, reinterpret_cast<LPARAM>(&text));
    return text;
}

void Confirm(HWND box) {
    ::PostMessageA(box, WM_COMMAND, IDOK, 0);
    while (::IsWindow(box))
        ::Sleep(5);
}

}  // namespace

WarningBoxes::WarningBoxes(const std::string& caption) : state_(std::make_unique<State>()) {
    state_->caption = caption;
    state_->watcher = std::thread([state = state_.get()] {
        while (!state->ended) {
            const HWND box = ::FindWindowA(nullptr, state->caption.c_str());
            const std::string text = box == nullptr ? "" : TextOf(box);
            if (!text.empty()) {
                const std::lock_guard hold(state->lock);
                state->texts.push_back(text);
                Confirm(box);
            }
            ::Sleep(5);
        }
    });
}

WarningBoxes::~WarningBoxes() {
    state_->ended = true;
    state_->watcher.join();
}

std::vector<std::string> WarningBoxes::Texts() const {
    const std::lock_guard hold(state_->lock);
    return state_->texts;
}

// ---- sockets -----------------------------------------------------------------------------------

namespace {

bool StartSockets() {
    static const bool started = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return started;
}

}  // namespace

bool Connection::Open(std::uint16_t port) {
    Close();
    if (!StartSockets()) return false;
    const SOCKET handle = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (handle == INVALID_SOCKET) return false;
    const int on = 1;
    ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(port);
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    if (::connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::closesocket(handle);
        return false;
    }
    socket_ = static_cast<std::intptr_t>(handle);
    return true;
}

void Connection::Close() {
    if (socket_ != kNone) ::closesocket(static_cast<SOCKET>(socket_));
    socket_ = kNone;
}

bool Connection::Send(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const int put = ::send(static_cast<SOCKET>(socket_), bytes.data() + done,
                               static_cast<int>(bytes.size() - done), 0);
        if (put <= 0) return false;
        done += static_cast<std::size_t>(put);
    }
    return true;
}

bool Connection::Receive(std::string* bytes, int timeout_ms) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(static_cast<SOCKET>(socket_), &readable);
    timeval limit = {timeout_ms / 1000, timeout_ms % 1000 * 1000};
    if (::select(0, &readable, nullptr, nullptr, &limit) <= 0) return false;
    char block[4096];
    const int got = ::recv(static_cast<SOCKET>(socket_), block, sizeof block, 0);
    if (got <= 0) return false;
    bytes->append(block, static_cast<std::size_t>(got));
    return true;
}

// Its queue is full: further connections are dropped.
SilentPort::SilentPort() {
    constexpr int kEnough = 4;
    StartSockets();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    int size = sizeof address;
    const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ::bind(listener, reinterpret_cast<const sockaddr*>(&address), size);
    ::listen(listener, 0);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    number_ = ::ntohs(address.sin_port);
    sockets_.push_back(static_cast<std::intptr_t>(listener));
    for (int i = 0; i < kEnough; ++i) {
        const SOCKET filler = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        u_long non_blocking = 1;
        ::ioctlsocket(filler, static_cast<long>(FIONBIO), &non_blocking);
        ::connect(filler, reinterpret_cast<const sockaddr*>(&address), size);
        sockets_.push_back(static_cast<std::intptr_t>(filler));
    }
}

SilentPort::~SilentPort() {
    for (const std::intptr_t handle : sockets_)
        ::closesocket(static_cast<SOCKET>(handle));
}

}  // namespace conformance
