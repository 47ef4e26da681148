#pragma once

// What unit tests share: the debug log, the trace and the console as text, a tick that tests move,
// waiting for an event.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "path_text.h"
#include "platform/files.h"
#include "platform/immortal.h"
#include "platform/process.h"
#include "platform/tick.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik::test {

// How long a test waits for something that is bound to happen.
inline constexpr std::chrono::seconds kPatience{10};

// True as soon as `happened` says so, false when patience has run out. For use in EXPECT_TRUE.
template <typename Predicate>
bool Eventually(Predicate happened) {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!happened()) {
        if (std::chrono::steady_clock::now() >= limit) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Where the library puts its files.
inline std::filesystem::path LibraryTempFolder() {
    char folder[kMaxPath];
    const std::uint32_t length = OsTempPath(folder, sizeof folder);
    return PathOf(length > 0 && length < sizeof folder ? folder : OsFallbackTempPath());
}

// The debug log of this process: opened once, it stays open as it does in the product.
inline const std::filesystem::path& DebugLogPath() {
    // Not destroyed before the exit handler runs, as an object of this function's own would be.
    static Immortal<std::filesystem::path> path([] {
        std::filesystem::path name =
            LibraryTempFolder() / ("dpdu_debug_" + std::to_string(OsProcessId()) + ".log");
        std::filesystem::remove(name);  // of an earlier process with this number
        OpenDebugLog(true);
        std::atexit([] {
            std::error_code ignored;  // best effort: Windows keeps a file that is open
            std::filesystem::remove(DebugLogPath(), ignored);
        });
        return name;
    }());
    return *path;
}

// What is logged while this object lives.
class LogCapture {
public:
    LogCapture() : start_(std::filesystem::file_size(DebugLogPath())) {}
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string Text() const {
        std::string text(std::filesystem::file_size(DebugLogPath()) - start_, '\0');
        std::ifstream file(DebugLogPath(), std::ios::binary);
        file.seekg(static_cast<std::streamoff>(start_));
        file.read(text.data(), static_cast<std::streamsize>(text.size()));
        return text;
    }

    // The messages without their time prefix, one a line.
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        const std::string text = Text();
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            const std::string line = text.substr(at, end - at);
            lines.push_back(line.size() >= kPrefix ? line.substr(kPrefix) : line);
            at = end + 1;
        }
        return lines;
    }

    std::size_t Count(const std::string& message) const {
        std::size_t found = 0;
        for (const std::string& line : Lines()) {
            if (line == message) ++found;
        }
        return found;
    }
    bool Has(const std::string& message) const { return Count(message) > 0; }
    // Some message contains `part`.
    bool Mentions(const std::string& part) const { return Text().find(part) != std::string::npos; }

private:
    static constexpr std::size_t kPrefix = sizeof "[2000-01-01 00:00:00] " - 1;

    std::uintmax_t start_;
};

// The ComPrimitive trace, on from here to Stop(). One at a time.
class TraceCapture {
public:
    TraceCapture() : before_(Files()) { StartCopTrace(); }
    ~TraceCapture() { Stop(); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    // Ends the trace and reads its file.
    void Stop() {
        if (stopped_) return;
        stopped_ = true;
        StopCopTrace();
        for (const std::filesystem::path& path : Files()) {
            if (before_.count(path) > 0) continue;
            std::ifstream file(path, std::ios::binary);
            text_.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
            file.close();
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
        }
    }

    // Both after Stop().
    bool Mentions(const std::string& part) const { return text_.find(part) != std::string::npos; }
    std::size_t Count(const std::string& event) const {
        const std::string field = "\"ev\":\"" + event + "\"";
        std::size_t found = 0;
        for (std::size_t at = text_.find(field); at != std::string::npos;
             at = text_.find(field, at + 1)) {
            ++found;
        }
        return found;
    }

private:
    static std::set<std::filesystem::path> Files() {
        const std::string name = "dpdu_coptrace_" + std::to_string(OsProcessId()) + "_";
        std::set<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(LibraryTempFolder())) {
            if (entry.path().filename().string().starts_with(name)) files.insert(entry.path());
        }
        return files;
    }

    std::set<std::filesystem::path> before_;
    std::string text_;
    bool stopped_ = false;
};

// What the process prints on standard output until Text() is called. One at a time; call Text()
// after the printing threads are done.
class StdoutCapture {
public:
    StdoutCapture() { testing::internal::CaptureStdout(); }
    ~StdoutCapture() {
        if (!taken_) testing::internal::GetCapturedStdout();
    }
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    const std::string& Text() {
        if (!taken_) text_ = testing::internal::GetCapturedStdout();
        taken_ = true;
        return text_;
    }

private:
    std::string text_;
    bool taken_ = false;
};

// Stands in for the millisecond tick. Make it before the threads of the test run, and let them end
// before it goes. Sleeps still take real time; waits look at the tick at least every 50 ms.
class FakeTick {
public:
    explicit FakeTick(std::uint64_t now_ms) {
        now_ms_ = now_ms;
        previous_ = SetTickSource([] {
            ++reads_;
            return now_ms_.load();
        });
    }
    ~FakeTick() { SetTickSource(previous_); }
    FakeTick(const FakeTick&) = delete;
    FakeTick& operator=(const FakeTick&) = delete;

    void Advance(std::uint64_t ms) { now_ms_ += ms; }
    // How often somebody has looked at it.
    std::uint64_t Reads() const { return reads_; }

private:
    static inline std::atomic<std::uint64_t> now_ms_{0};
    static inline std::atomic<std::uint64_t> reads_{0};
    TickSource previous_;
};

// A thread that is joined at the end of its scope.
class Thread {
public:
    template <typename Body>
    explicit Thread(Body body) : thread_(std::move(body)) {}
    ~Thread() { Join(); }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    void Join() {
        if (thread_.joinable()) thread_.join();
    }

private:
    std::thread thread_;
};

}  // namespace tarvik::test
