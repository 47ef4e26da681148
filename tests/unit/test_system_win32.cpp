#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>

#include "unit/test_system.h"
#include "wide_text.h"

namespace tarvik::test {

const bool kTerminatesThreads = true;

void SetVariable(const char* name, const char* value) {
    ::SetEnvironmentVariableW(Wide(name).c_str(), value ? Wide(value).c_str() : nullptr);
}

TemporaryFolderVariable::TemporaryFolderVariable(const std::string& folder) {
    wchar_t before[MAX_PATH];
    before_ = Narrow({before, ::GetEnvironmentVariableW(L"TMP", before, MAX_PATH)});
    SetVariable("TMP", folder.c_str());
}

TemporaryFolderVariable::~TemporaryFolderVariable() { SetVariable("TMP", before_.c_str()); }

// On Windows a stream opened only for writing would suffice, but under Wine its reads report the
// end of the file.
std::FILE* OpenUnreadable(const std::string& path) {
    const int file =
        ::_wopen(Wide(path).c_str(), _O_WRONLY | _O_CREAT | _O_BINARY, _S_IREAD | _S_IWRITE);
    return ::_fdopen(file, "rb");
}

std::string CurrentThreadName() {
    using GetDescription = HRESULT(WINAPI*)(HANDLE, PWSTR*);
    const auto get_description = reinterpret_cast<GetDescription>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleA("kernelbase.dll"), "GetThreadDescription")));
    PWSTR wide = nullptr;
    if (get_description == nullptr || FAILED(get_description(::GetCurrentThread(), &wide))) {
        return "(none)";
    }
    std::string name;
    for (const wchar_t* letter = wide; *letter != L'\0'; ++letter) {
        name.push_back(static_cast<char>(*letter));
    }
    ::LocalFree(wide);
    return name;
}

std::string KeptThreadName(const std::string& description) { return description; }

namespace {

// A handle that shares only reading excludes every writer, whatever its rights.
class SharedForReading : public WriteProtection {
public:
    explicit SharedForReading(const std::string& path)
        : file_(::CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {}
    ~SharedForReading() override { ::CloseHandle(file_); }

private:
    HANDLE file_;
};

void CloseWindowNamed(const char* caption) {
    const HWND window = ::FindWindowA(nullptr, caption);
    if (window != nullptr) ::PostMessageA(window, WM_CLOSE, 0, 0);
}

int ExitCodeOf(HANDLE process) {
    constexpr int kLimitSeconds = 60;
    for (int i = 0; i < kLimitSeconds * 20; ++i) {
        if (::WaitForSingleObject(process, 50) == WAIT_OBJECT_0) {
            DWORD code = 0;
            ::GetExitCodeProcess(process, &code);
            return static_cast<int>(code);
        }
        CloseWindowNamed("Critical Error");
    }
    ::TerminateProcess(process, 99);
    return -1;
}

}  // namespace

std::unique_ptr<WriteProtection> ProtectFromWriting(const std::string& path) {
    return std::make_unique<SharedForReading>(path);
}

ChildResult RunChild(const std::string& name) {
    char folder[MAX_PATH];
    char output[MAX_PATH];
    ::GetTempPathA(MAX_PATH, folder);
    ::GetTempFileNameA(folder, "chd", 0, output);
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    const HANDLE file = ::CreateFileA(output, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    char program[MAX_PATH];
    ::GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string command = "\"" + std::string(program) + "\" " + kChildOption + name;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = file;
    startup.hStdError = file;
    PROCESS_INFORMATION child = {};
    ChildResult result{-1000, ""};
    if (::CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                         &startup, &child)) {
        result.exit_code = ExitCodeOf(child.hProcess);
        ::CloseHandle(child.hThread);
        ::CloseHandle(child.hProcess);
    }
    ::CloseHandle(file);
    {
        std::ifstream text(output);
        result.output.assign(std::istreambuf_iterator<char>(text), {});
    }
    std::remove(output);
    return result;
}

void CloseMessageBoxOf(const std::string& caption, const std::function<void()>& show) {
    std::atomic<bool> done{false};
    std::thread closer([&] {
        while (!done) {
            CloseWindowNamed(caption.c_str());
            ::Sleep(20);
        }
    });
    show();
    done = true;
    closer.join();
}

std::string PrintedMessageBox(const std::string&, const std::string&) { return ""; }

bool MakeConsole() {
    ::AllocConsole();
    return ::GetConsoleWindow() != nullptr;
}

bool OutputIsOnConsole() { return ::_isatty(::_fileno(stdout)) != 0; }

std::string PrintedOnConsole(const std::string&) { return ""; }

// A pipe whose writes are messages.
WriteCounter::WriteCounter() {
    const std::string name =
        "\\\\.\\pipe\\tarvik-writes-" + std::to_string(::GetCurrentProcessId());
    const HANDLE pipe =
        ::CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND,
                           PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1, 0, 65'536, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) return;
    const HANDLE writer =
        ::CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const int file = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(writer), _O_TEXT);
    read_end_ = reinterpret_cast<std::intptr_t>(pipe);
    std::fflush(stdout);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    standard_ = ::_dup(::_fileno(stdout));
    ::_dup2(file, ::_fileno(stdout));
    ::_close(file);
}

WriteCounter::~WriteCounter() {
    if (!IsUsable()) return;
    ::_dup2(standard_, ::_fileno(stdout));
    std::setvbuf(stdout, nullptr, _IOFBF, 4096);
    ::_close(standard_);
    ::CloseHandle(reinterpret_cast<HANDLE>(read_end_));
}

std::string WriteCounter::Next() {
    std::string text(65'536, '\0');
    DWORD size = 0;
    ::ReadFile(reinterpret_cast<HANDLE>(read_end_), text.data(), static_cast<DWORD>(text.size()),
               &size, nullptr);
    text.resize(size);
    std::erase(text, '\r');
    return text;
}

bool WriteCounter::HasNext() {
    DWORD available = 0;
    ::PeekNamedPipe(reinterpret_cast<HANDLE>(read_end_), nullptr, 0, nullptr, &available, nullptr);
    return available > 0;
}

}  // namespace tarvik::test
