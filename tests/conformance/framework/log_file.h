#pragma once

// The debug log of this process, its console and its debugger output.

#include <cstddef>
#include <string>
#include <vector>

namespace conformance {

std::string LogPath();

// What is logged while this object lives. Every line is on disk when the call that logs it returns.
class LogCapture {
public:
    LogCapture();

    // The messages without their time prefix.
    std::vector<std::string> Lines() const;
    // Those of one function: they begin with its name in brackets.
    std::vector<std::string> LinesOf(const std::string& function) const;
    std::size_t Count(const std::string& message) const;
    bool Has(const std::string& message) const { return Count(message) > 0; }
    // The number of messages that match a pattern. Each * matches any text.
    std::size_t CountLike(const std::string& pattern) const;
    bool HasLike(const std::string& pattern) const { return CountLike(pattern) > 0; }
    // Looks for these messages (patterns as above) in this order, with or without others between
    // them. Returns the first one that is missing, or an empty text.
    std::string MissingOf(const std::vector<std::string>& patterns) const;
    std::string Text() const;  // with the time prefixes

private:
    std::size_t start_;
};

// True if `text` matches `pattern`. Each * matches any text.
bool Matches(const std::string& text, const std::string& pattern);

// What is printed on standard output until Text() is called, which must be after the printing
// threads have finished.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture() { Text(); }
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    const std::string& Text();
    bool Has(const std::string& part) { return Text().find(part) != std::string::npos; }
    // Only the lines that begin with it, because several transports print at the same time.
    std::string LinesWith(const std::string& beginning);

private:
    std::string file_;
    int saved_;
    std::string text_;
};

// What the library sends to the debugger while this object lives. One at a time.
class DebugOutputCapture {
public:
    DebugOutputCapture();
    ~DebugOutputCapture();
    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

    std::string Text() const;
    bool Has(const std::string& part) const { return Text().find(part) != std::string::npos; }
};

}  // namespace conformance
