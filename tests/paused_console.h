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
#include <unistd.h>
#endif

namespace paused_console {

#ifdef _WIN32
inline bool MakePipe(int (&ends)[2]) { return ::_pipe(ends, 4096, _O_BINARY) == 0; }
inline int Duplicate(int file) { return ::_dup(file); }
inline void Replace(int file, int with) { ::_dup2(with, file); }
inline void Close(int file) { ::_close(file); }
inline int Read(int file, char* data, unsigned size) { return ::_read(file, data, size); }
// Writes until there is no room.
inline void Fill(int file) {
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
#else
inline bool MakePipe(int (&ends)[2]) { return ::pipe(ends) == 0; }
inline int Duplicate(int file) { return ::dup(file); }
inline void Replace(int file, int with) { ::dup2(with, file); }
inline void Close(int file) { ::close(file); }
inline int Read(int file, char* data, unsigned size) {
    return static_cast<int>(::read(file, data, size));
}
inline void Fill(int file) {
    const int flags = ::fcntl(file, F_GETFL);
    ::fcntl(file, F_SETFL, flags | O_NONBLOCK);
    while (::write(file, ".", 1) > 0) {
    }
    ::fcntl(file, F_SETFL, flags);
}
#endif

class PausedConsole {
public:
    PausedConsole() {
        std::fflush(stdout);
        usable_ = MakePipe(ends_);
        if (!usable_) return;
        Fill(ends_[1]);
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
