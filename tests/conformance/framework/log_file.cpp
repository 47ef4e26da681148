#include "conformance/framework/log_file.h"

#include <gtest/gtest.h>
#include <sstream>

#include <algorithm>
#include <cstdio>

#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"

namespace conformance {
namespace {

constexpr std::size_t kPrefix = sizeof "[2000-01-01 00:00:00] " - 1;

const char* EndOf(const std::string& text) {
    constexpr std::size_t kEnough = 20'000;
    return text.c_str() + (text.size() > kEnough ? text.size() - kEnough : 0);
}

}  // namespace

std::string LogPath() {
    return JoinPath(TempFolder(), "dpdu_debug_" + std::to_string(ProcessId()) + ".log");
}

LogCapture::LogCapture() : start_(FileSize(LogPath())) {}

std::string LogCapture::Text() const { return ReadFile(LogPath(), start_); }

std::vector<std::string> LogCapture::Lines() const {
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

std::vector<std::string> LogCapture::LinesOf(const std::string& function) const {
    std::vector<std::string> lines = Lines();
    std::erase_if(lines, [tag = "[" + function + "]"](const std::string& line) {
        return !line.starts_with(tag);
    });
    return lines;
}

std::size_t LogCapture::Count(const std::string& message) const {
    const std::vector<std::string> lines = Lines();
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), message));
}

std::size_t LogCapture::CountLike(const std::string& pattern) const {
    const std::vector<std::string> lines = Lines();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(),
                      [&](const std::string& line) { return Matches(line, pattern); }));
}

std::string LogCapture::MissingOf(const std::vector<std::string>& patterns) const {
    const std::vector<std::string> lines = Lines();
    auto line = lines.begin();
    for (const std::string& pattern : patterns) {
        while (line != lines.end() && !Matches(*line, pattern))
            ++line;
        if (line == lines.end()) return pattern;
        ++line;
    }
    return "";
}

bool Matches(const std::string& text, const std::string& pattern) {
    std::size_t at = 0;
    std::size_t star = std::string::npos;  // the last one passed, and the end of what it matched
    std::size_t star_end = 0;
    std::size_t want = 0;
    while (at < text.size()) {
        if (want < pattern.size() && pattern[want] == '*') {
            star = want++;
            star_end = at;
        } else if (want < pattern.size() && pattern[want] == text[at]) {
            ++want;
            ++at;
        } else if (star != std::string::npos) {
            want = star + 1;
            at = ++star_end;
        } else {
            return false;
        }
    }
    while (want < pattern.size() && pattern[want] == '*')
        ++want;
    return want == pattern.size();
}

StdoutCapture::StdoutCapture() : file_(JoinPath(PrivateFolder(), "stdout.txt")) {
    std::fflush(stdout);
    saved_ = RedirectStdout(file_);
}

const std::string& StdoutCapture::Text() {
    if (saved_ < 0) return text_;
    std::fflush(stdout);
    RestoreStdout(saved_);
    saved_ = -1;
    text_ = ReadFile(file_);
    // The text of the failure went there too.
    if (testing::Test::HasFailure()) std::fputs(EndOf(text_), stdout);
    return text_;
}

std::string StdoutCapture::LinesWith(const std::string& beginning) {
    std::istringstream lines(Text());
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(beginning)) found += line + "\n";
    }
    return found;
}

DebugOutputCapture::DebugOutputCapture() { CollectDebugOutput(true); }

DebugOutputCapture::~DebugOutputCapture() { CollectDebugOutput(false); }

std::string DebugOutputCapture::Text() const { return DebugOutput(); }

}  // namespace conformance
