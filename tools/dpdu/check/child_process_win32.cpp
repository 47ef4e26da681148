#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <thread>

#include "check/child_process.h"
#include "console/failure.h"
#include "text/wide_win32.h"

namespace dpdu::check {
namespace {

constexpr std::chrono::milliseconds kReadPoll{10};  // anonymous pipes cannot be waited for
constexpr DWORD kPipeSize = 1 << 20;
constexpr UINT kEnded = 1;

[[noreturn]] void Refuse(const std::string& program) {
    const DWORD error = ::GetLastError();
    throw Failure("the program '" + program + "' cannot be started: error " +
                  std::to_string(error));
}

class Handle {
public:
    Handle() = default;
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HANDLE Get() const { return handle_; }
    HANDLE* Out() { return &handle_; }
    void Set(HANDLE handle) {
        Close();
        handle_ = handle;
    }
    void Close() {
        if (handle_ != nullptr) ::CloseHandle(handle_);
        handle_ = nullptr;
    }

private:
    HANDLE handle_ = nullptr;
};

struct Pipe {
    Handle reading;
    Handle writing;

    Pipe() {
        if (!::CreatePipe(reading.Out(), writing.Out(), nullptr, kPipeSize)) {
            throw Failure("no pipe for another program");
        }
    }
};

void LetInherit(HANDLE handle) {
    if (!::SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT)) {
        throw Failure("no pipe for another program");
    }
}

// What is in it ends when the last handle of it is closed, which this process has.
HANDLE EndingJob() {
    const HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (job != nullptr) {
        ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    }
    return job;
}

std::wstring WideProgram() {
    std::array<wchar_t, 4096> buffer{};
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer.data(), buffer.size());
    return {buffer.data(), length};
}

// As the C runtime of most programs splits a command line.
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

std::wstring CommandLine(const Command& command) {
    std::string line = Quoted(command.program);
    for (const std::string& argument : command.arguments)
        line += " " + Quoted(argument);
    return ToWide(line);
}

LONG WINAPI EndAtOnce(EXCEPTION_POINTERS* fault) {
    ::TerminateProcess(::GetCurrentProcess(), fault->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

std::string OwnProgram() { return FromWide(WideProgram()); }

struct ChildProcess::System {
    Handle process;
    Handle job;
    Pipe output;
};

ChildProcess::ChildProcess(const Command& command, const std::string& input)
    : system_(std::make_unique<System>()) {
    Pipe pipe;
    LetInherit(pipe.reading.Get());
    LetInherit(system_->output.writing.Get());
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = pipe.reading.Get();
    startup.hStdOutput = system_->output.writing.Get();
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION started = {};
    std::wstring line = CommandLine(command);
    if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                          nullptr, &startup, &started)) {
        Refuse(command.program);
    }
    system_->process.Set(started.hProcess);
    system_->job.Set(EndingJob());
    ::AssignProcessToJobObject(system_->job.Get(), started.hProcess);
    ::ResumeThread(started.hThread);
    ::CloseHandle(started.hThread);
    pipe.reading.Close();
    system_->output.writing.Close();
    DWORD written = 0;
    // A child that has ended reads nothing; how it ended is asked later.
    ::WriteFile(pipe.writing.Get(), input.data(), static_cast<DWORD>(input.size()), &written,
                nullptr);
}

ChildProcess::~ChildProcess() {
    if (WaitForEnd(std::chrono::milliseconds(0))) return;
    ::TerminateProcess(system_->process.Get(), kEnded);
    ::WaitForSingleObject(system_->process.Get(), INFINITE);
}

ChildProcess::Read ChildProcess::ReadSome(std::chrono::milliseconds limit, std::string* output) {
    const HANDLE pipe = system_->output.reading.Get();
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        DWORD available = 0;
        if (!::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr)) return Read::kEnd;
        if (available > 0) break;
        if (std::chrono::steady_clock::now() >= deadline) return Read::kNothing;
        std::this_thread::sleep_for(kReadPoll);
    }
    std::array<char, 65536> block;
    DWORD count = 0;
    if (!::ReadFile(pipe, block.data(), block.size(), &count, nullptr)) return Read::kEnd;
    output->append(block.data(), count);
    return Read::kBytes;
}

std::optional<std::string> ChildProcess::WaitForEnd(std::chrono::milliseconds limit) {
    const HANDLE process = system_->process.Get();
    if (::WaitForSingleObject(process, static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
        return std::nullopt;
    }
    DWORD code = 0;
    ::GetExitCodeProcess(process, &code);
    if (code == 0) return "";
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), code < 0x10000 ? "exit code %lu" : "exception 0x%08lX",
                  code);
    return text.data();
}

void BecomeChild() {
    ::SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    ::SetUnhandledExceptionFilter(EndAtOnce);
}

}  // namespace dpdu::check
