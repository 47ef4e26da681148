// Standard output of which the reader has stopped, as when a user has paused the console.

#pragma once

#include <fcntl.h>

#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>
#endif

namespace paused_console {

#ifdef _WIN32
inline bool MakeOutput(int (&ends)[2]) { return ::_pipe(ends, 4096, _O_BINARY) == 0; }
inline int Duplicate(int file) { return ::_dup(file); }
inline void Replace(int file, int with) { ::_dup2(with, file); }
inline void Close(int file) { ::_close(file); }
inline int Read(int file, char* data, unsigned size) { return ::_read(file, data, size); }
// Writes until there is no room.
inline void Pause(int file) {
    const auto pipe = reinterpret_cast<HANDLE>(::_get_osfhandle(file));
    DWORD mode = PIPE_NOWAIT;
    ::SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr);
    DWORD written = 1;
    while (written > 0) {
        written = 0;
        if (!::WriteFile(pipe, ".", 1, &written, nullptr)) break;
    }
    mode = PIPE_WAIT;
    ::SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr);
}
inline void GoOn(int) {}  // reading does it
#else
// A terminal: a pipe never waits.
inline bool MakeOutput(int (&ends)[2]) {
    ends[0] = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (ends[0] < 0 || ::grantpt(ends[0]) != 0 || ::unlockpt(ends[0]) != 0) return false;
    ends[1] = ::open(::ptsname(ends[0]), O_RDWR | O_NOCTTY);
    termios settings{};
    if (ends[1] < 0 || ::tcgetattr(ends[1], &settings) != 0) return false;
    ::cfmakeraw(&settings);
    return ::tcsetattr(ends[1], TCSANOW, &settings) == 0;
}
inline int Duplicate(int file) { return ::dup(file); }
inline void Replace(int file, int with) { ::dup2(with, file); }
inline void Close(int file) { ::close(file); }
inline int Read(int file, char* data, unsigned size) {
    return static_cast<int>(::read(file, data, size));
}
// As Ctrl-S and Ctrl-Q.
inline void Pause(int file) { ::tcflow(file, TCOOFF); }
inline void GoOn(int file) { ::tcflow(file, TCOON); }
#endif

// From now on, standard output is a pipe that nobody reads from.
inline bool CloseReaderOfOutput() {
    int ends[2] = {-1, -1};
#ifdef _WIN32
    if (!MakeOutput(ends)) return false;
#else
    if (::pipe(ends) != 0) return false;
#endif
    Replace(::fileno(stdout), ends[1]);
    Close(ends[1]);
    Close(ends[0]);
    return true;
}

class PausedConsole {
public:
    PausedConsole() {
        std::fflush(stdout);
        usable_ = MakeOutput(ends_);
        if (!usable_) return;
        Pause(ends_[1]);
        standard_ = Duplicate(Output());
        Replace(Output(), ends_[1]);
        Close(ends_[1]);
    }
    // The console goes on before it ends.
    ~PausedConsole() {
        if (!usable_) return;
        Resume();
        std::fflush(stdout);
        Replace(Output(), standard_);
        Close(standard_);
        reader_.join();
        Close(ends_[0]);
    }
    PausedConsole(const PausedConsole&) = delete;
    PausedConsole& operator=(const PausedConsole&) = delete;

    bool IsUsable() const { return usable_; }

    void Resume() {
        if (reader_.joinable()) return;
        GoOn(Output());
        reader_ = std::thread([this] {
            char text[4096];
            for (int size = 1; size > 0;) {
                size = Read(ends_[0], text, sizeof text);
                const std::lock_guard<std::mutex> hold(lock_);
                if (size > 0) shown_.append(text, static_cast<std::size_t>(size));
            }
        });
    }
    // What has appeared since.
    std::string Shown() {
        const std::lock_guard<std::mutex> hold(lock_);
        return shown_;
    }

private:
#ifdef _WIN32
    static int Output() { return ::_fileno(stdout); }
#else
    static int Output() { return ::fileno(stdout); }
#endif
    int ends_[2] = {-1, -1};
    int standard_ = -1;
    bool usable_ = false;
    std::mutex lock_;
    std::string shown_;  // guarded by lock_
    std::thread reader_;
};

}  // namespace paused_console
