#pragma once

// What the tests need from the operating system; one implementation for each.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace conformance {

extern const char kPathSeparator;

// ---- libraries ---------------------------------------------------------------------------------

// Null: not loaded; `error` has the reason.
void* LoadLibraryFile(const std::string& path, std::string* error);
void* FindFunction(void* library, const char* name);  // null: not exported
bool UnloadLibraryFile(void* library);
extern const char kLibraryFileName[];

// ---- process -----------------------------------------------------------------------------------

std::uint32_t ProcessId();
std::string ProgramPath();

using Variables = std::vector<std::pair<std::string, std::string>>;
void SetVariable(const std::string& name, const std::string& value);  // empty: removes it

// Runs this program again and waits for its end; its standard output and error go to a file.
// Returns its exit code, or -1 if it could not be started.
int RunProgramAgain(const std::vector<std::string>& arguments, const Variables& variables,
                    const std::string& output_file);

struct ProcessFigures {
    std::uint64_t threads = 0;
    std::uint64_t handles = 0;  // file descriptors on Linux
    std::uint64_t memory = 0;   // bytes: resident and of no file on Linux, committed on Windows
};
ProcessFigures MeasureProcess();

// Whether PDUDestruct ends a thread that does not end by itself.
extern const bool kTerminatesThreads;

// Blocks the calling thread in the system for ever: only its termination ends that.
[[noreturn]] void BlockForever();

std::uint32_t ThreadId();  // as in the trace file
std::uint64_t TickMs();    // the clock of the library's timestamps

// ---- folders and files -------------------------------------------------------------------------

// From now on, in this process, the library uses these as temporary folder and user's folder. Call
// UseUserFolder before the library is loaded.
void UseTempFolder(const std::string& folder);
void UseUserFolder(const std::string& folder);
// The system's temporary folder, for the tests' private folders.
std::string SystemTempFolder();

// While it lives, a file can be read but not opened for writing. Meanwhile the whole process lacks
// the privileges that would override this.
class WriteProtection {
public:
    WriteProtection(const std::string& file, const std::string& private_folder);
    ~WriteProtection();
    WriteProtection(const WriteProtection&) = delete;
    WriteProtection& operator=(const WriteProtection&) = delete;

private:
    [[maybe_unused]] void* file_ = nullptr;  // on Windows
    std::uint32_t user_ = 0;
};

// Prevents this file, which does not exist and would be beside the loaded library, from being
// created or opened.
void MakeImpossible(const std::string& file);

// Files that stay open must not keep the private folder from being deleted at the end.
void PrepareDeletion(void* library);

// ---- standard output and debugger output -------------------------------------------------------

// Whether the library's debug console is the standard output that a process is started with.
bool ConsoleIsStandardOutput();

int RedirectStdout(const std::string& file);
void RestoreStdout(int saved);

// Discards what was collected. From now on, collects what the library sends to the debugger, or
// stops collecting.
void CollectDebugOutput(bool on);
std::string DebugOutput();  // so far

// ---- warnings ----------------------------------------------------------------------------------

// The warning boxes with this caption that the process shows while this object lives. Each is read
// and confirmed at once. Where a box is text on standard error, that text is read. One object at a
// time.
class WarningBoxes {
public:
    explicit WarningBoxes(const std::string& caption);
    ~WarningBoxes();
    WarningBoxes(const WarningBoxes&) = delete;
    WarningBoxes& operator=(const WarningBoxes&) = delete;

    std::vector<std::string> Texts() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// ---- control connection of the simulator -------------------------------------------------------

// A TCP connection to the loopback interface.
class Connection {
public:
    Connection() = default;
    ~Connection() { Close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool Open(std::uint16_t port);
    void Close();
    bool IsOpen() const { return socket_ != kNone; }
    bool Send(const std::string& bytes);
    // Appends what arrives next; false: the peer closed, or nothing came in time.
    bool Receive(std::string* bytes, int timeout_ms);

private:
    static constexpr std::intptr_t kNone = -1;
    std::intptr_t socket_ = kNone;
};

// A port of the loopback interface that neither accepts nor refuses connections.
class SilentPort {
public:
    SilentPort();
    ~SilentPort();
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;

    std::string Address() const { return "127.0.0.1:" + std::to_string(number_); }

private:
    std::uint16_t number_ = 0;
    std::vector<std::intptr_t> sockets_;
};

}  // namespace conformance
