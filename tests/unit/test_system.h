#pragma once

// Operating system functions for tests that the library's platform layer does not have.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace tarvik::test {

// Sets a variable of this process's environment to a text in UTF-8; null removes it.
void SetVariable(const char* name, const char* value);

// While it lives, the system's variable for temporary files names this folder.
class TemporaryFolderVariable {
public:
    explicit TemporaryFolderVariable(const std::string& folder);
    ~TemporaryFolderVariable();
    TemporaryFolderVariable(const TemporaryFolderVariable&) = delete;
    TemporaryFolderVariable& operator=(const TemporaryFolderVariable&) = delete;

private:
    std::string before_;
};

// Whether OsThreadTerminate ends a thread.
extern const bool kTerminatesThreads;

// The calling thread's name, as a debugger shows it.
std::string CurrentThreadName();
// The part of `description` that the system keeps.
std::string KeptThreadName(const std::string& description);

// During its lifetime this process can read the file but not open it for writing.
class WriteProtection {
public:
    virtual ~WriteProtection() = default;
};
std::unique_ptr<WriteProtection> ProtectFromWriting(const std::string& path);

// A stream opened for reading on which every read fails. Creates a file at `path` for it.
std::FILE* OpenUnreadable(const std::string& path);

struct ChildResult {
    int exit_code;       // below 0: killed
    std::string output;  // standard output and standard error
};
// Runs the body that this program registered under `name` in a new process, and closes its message
// boxes.
ChildResult RunChild(const std::string& name);

// Calls `show`, and closes the message box with this caption that it may open.
void CloseMessageBoxOf(const std::string& caption, const std::function<void()>& show);

// What a message box prints on standard error: nothing if it is a window.
std::string PrintedMessageBox(const std::string& text, const std::string& caption);

// Gives this process a console where it can have one of its own. False: it cannot.
bool MakeConsole();
// Whether standard output is on such a console.
bool OutputIsOnConsole();

// What appears on a child's standard output of text that it prints on its own console.
std::string PrintedOnConsole(const std::string& text);

// Standard output of which each write is read apart. The stream is unbuffered, as on a console.
class WriteCounter {
public:
    WriteCounter();
    ~WriteCounter();
    WriteCounter(const WriteCounter&) = delete;
    WriteCounter& operator=(const WriteCounter&) = delete;

    bool IsUsable() const { return read_end_ != -1; }
    // What the next write has written, without carriage returns. Waits for it.
    std::string Next();
    // Whether there is another one.
    bool HasNext();

private:
    std::intptr_t read_end_ = -1;
    int standard_ = -1;
};

// Registers a body for RunChild. It returns the process's exit code.
class ChildBody {
public:
    ChildBody(const char* name, int (*body)());
    static int Run(const std::string& name);  // -1: no such body
};

inline constexpr const char kChildOption[] = "--run-child=";

}  // namespace tarvik::test
