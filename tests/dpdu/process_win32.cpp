#include <windows.h>

#include <cstdio>

#include "process.h"
#include "wide_text.h"

namespace {

// Quotes as the C runtime expects when it splits a command line.
std::string Quoted(const std::string& argument) {
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (const char character : argument) {
        if (character == '"') quoted.append(backslashes + 1, '\\');
        backslashes = character == '\\' ? backslashes + 1 : 0;
        quoted += character;
    }
    return quoted + std::string(backslashes, '\\') + "\"";
}

HANDLE OpenForChild(const std::string& path, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return ::CreateFileW(Wide(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                         disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

HANDLE OpenPipeWithoutReader() {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE reader = nullptr;
    HANDLE writer = nullptr;
    if (!::CreatePipe(&reader, &writer, &inherited, 0)) return INVALID_HANDLE_VALUE;
    ::CloseHandle(reader);
    return writer;
}

// The child inherits this process's environment, so it is changed during the start.
void SetAll(const ProcessSetup& setup, bool set) {
    for (const auto& [name, value] : setup.environment) {
        ::SetEnvironmentVariableW(Wide(name).c_str(),
                                  set && !value.empty() ? Wide(value).c_str() : nullptr);
    }
}

// On a busy machine Wine sometimes refuses a start that succeeds a moment later.
bool CreateChild(std::wstring command, STARTUPINFOW* startup, PROCESS_INFORMATION* information) {
    constexpr int kAttempts = 3;
    for (int attempt = 1;; ++attempt) {
        // A separate console without a window, because Ctrl-C is sent to a console.
        if (::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                             nullptr, nullptr, startup, information)) {
            return true;
        }
        std::fprintf(stderr, "CreateProcess: error %lu, attempt %d\n", ::GetLastError(), attempt);
        if (attempt == kAttempts) return false;
        ::Sleep(200);
    }
}

}  // namespace

ProcessHandle StartProcess(const ProcessSetup& setup) {
    std::string command = Quoted(setup.program);
    for (const std::string& argument : setup.arguments)
        command += " " + Quoted(argument);

    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = OpenForChild(setup.input_path.empty() ? "NUL" : setup.input_path,
                                     GENERIC_READ, OPEN_EXISTING);
    startup.hStdOutput = setup.output_path.empty()
                             ? OpenPipeWithoutReader()
                             : OpenForChild(setup.output_path, GENERIC_WRITE, CREATE_ALWAYS);
    startup.hStdError = OpenForChild(setup.error_path, GENERIC_WRITE, CREATE_ALWAYS);
    PROCESS_INFORMATION information = {};

    SetAll(setup, true);
    const bool started = CreateChild(Wide(command), &startup, &information);
    SetAll(setup, false);
    ::CloseHandle(startup.hStdInput);
    ::CloseHandle(startup.hStdOutput);
    ::CloseHandle(startup.hStdError);
    if (!started) return 0;
    ::CloseHandle(information.hThread);
    return reinterpret_cast<ProcessHandle>(information.hProcess);
}

bool InterruptProcess(ProcessHandle process) {
    // This program joins the child's console briefly. A handler keeps it alive; unlike ignoring
    // Ctrl-C, a handler is not inherited by later children.
    ::SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);
    ::FreeConsole();
    if (!::AttachConsole(::GetProcessId(reinterpret_cast<HANDLE>(process)))) return false;
    const BOOL sent = ::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
    ::FreeConsole();
    return sent != 0;
}

int WaitForProcess(ProcessHandle process) {
    const HANDLE handle = reinterpret_cast<HANDLE>(process);
    ::WaitForSingleObject(handle, INFINITE);
    DWORD code = 0;
    ::GetExitCodeProcess(handle, &code);
    ::CloseHandle(handle);
    return static_cast<int>(code);
}

unsigned long OwnProcessId() { return ::GetCurrentProcessId(); }
