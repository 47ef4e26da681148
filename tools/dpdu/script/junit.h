// The result of a script as JUnit XML, which servers for continuous integration read.

#ifndef TOOLS_DPDU_SCRIPT_JUNIT_H
#define TOOLS_DPDU_SCRIPT_JUNIT_H

#include <string>
#include <string_view>
#include <vector>

namespace dpdu::script {

struct TestCase {
    enum class Outcome { kNotRun, kPassed, kFailed, kBroken };  // broken: not by an answer

    std::string name;
    Outcome outcome = Outcome::kNotRun;
    double seconds = 0;
    std::string message;  // one line, if it did not pass
    std::string details;  // further lines
    std::string output;
};

struct TestSuite {
    std::string name;
    std::string started;  // "2026-11-23T20:15:00", UTC
    double seconds = 0;
    std::vector<TestCase> cases;
};

std::string JUnitText(const TestSuite& suite);

enum class XmlPlace { kAttribute, kContent };

// Bytes that are not UTF-8 and characters that XML does not have become "\x1B": a backslash and the
// bytes in hexadecimal.
std::string XmlText(std::string_view text, XmlPlace place);

// A file that appears under its name only when it is complete. What has the name before is
// replaced.
class ReplacedFile {
public:
    // Throws Failure if its folder cannot be written to, or if it is a folder itself.
    explicit ReplacedFile(std::string path);
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    // Throws Failure.
    void Write(const std::string& text);

private:
    std::string path_;
    std::string temporary_;
};

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_JUNIT_H
