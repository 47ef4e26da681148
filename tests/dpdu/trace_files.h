// Trace files for tests: those that the real library has written, and lines made up after them.

#ifndef TESTS_DPDU_TRACE_FILES_H
#define TESTS_DPDU_TRACE_FILES_H

#include <string>

// A file of the folder traces, by its name without ending.
std::string TracePath(const std::string& name);

std::string TraceText(const std::string& name);

// A line as the library writes it: `fields` is what follows the event's name, as in "\"hCoP\":1".
std::string TraceLine(int seq, int ts_us, const std::string& event, const std::string& fields);

// The same with the three handles in front of the other fields, which begin with a comma.
std::string CopLine(int seq, int ts_us, const std::string& event, int cop,
                    const std::string& fields = "");

// The lines of a request of ComPrimitive `cop` to control unit 7E0:7E8.
std::string StartLine(int seq, int ts_us, int cop, const char* hex);
std::string StateLine(int seq, int ts_us, int cop, int to);
std::string SentLine(int seq, int ts_us, int cop);
std::string ReceivedLine(int seq, int ts_us, int cop, const char* hex = "7e");
std::string FreeLine(int seq, int ts_us, int cop);

constexpr int kExecuting = 32785;
constexpr int kFinished = 32786;
constexpr int kCancelled = 32787;

// A file of its own with this text, which goes away with it.
class TemporaryTrace {
public:
    explicit TemporaryTrace(const std::string& text);
    ~TemporaryTrace();
    TemporaryTrace(const TemporaryTrace&) = delete;
    TemporaryTrace& operator=(const TemporaryTrace&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

#endif  // TESTS_DPDU_TRACE_FILES_H
