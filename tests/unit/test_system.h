#pragma once

// What tests need of the operating system beyond the library's own platform layer.

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace tarvik::test {

// Sets a variable of this process's environment; null removes it.
void SetVariable(const char* name, const char* value);

// The calling thread's description, as a debugger would show it.
std::string CurrentThreadName();
// What the system keeps of `description`.
std::string KeptThreadName(const std::string& description);

// While it lives the file can be read but not opened for writing by this process.
class WriteProtection {
public:
    virtual ~WriteProtection() = default;
};
std::unique_ptr<WriteProtection> ProtectFromWriting(const std::string& path);

// A stream, opened for reading, whose every read fails. `path` is a file to create for it.
std::FILE* OpenUnreadable(const std::string& path);

struct ChildResult {
    int exit_code;       // below 0: it was killed
    std::string output;  // standard output and standard error
};
// Runs the body that this program registered under `name` in a process of its own. Message boxes
// of the child are closed.
ChildResult RunChild(const std::string& name);

// Calls `show` and closes the message box with that caption that it may put on the screen.
void CloseMessageBoxOf(const std::string& caption, const std::function<void()>& show);

// What a message box leaves on standard error: nothing where it is a window.
std::string PrintedMessageBox(const std::string& text, const std::string& caption);

// What a child leaves on its standard output of text that it prints on a console of its own.
std::string PrintedOnConsole(const std::string& text);

// Registers what RunChild runs; `body` returns the process's exit code.
class ChildBody {
public:
    ChildBody(const char* name, int (*body)());
    static int Run(const std::string& name);  // -1: there is no such body
};

inline constexpr const char kChildOption[] = "--run-child=";

}  // namespace tarvik::test
