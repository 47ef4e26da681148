// Trace files for tests: some written by the real library, and lines composed in the same format.

#ifndef TESTS_DPDU_TRACE_FILES_H
#define TESTS_DPDU_TRACE_FILES_H

#include <cstdint>
#include <string>

// A file in the folder traces, by its name without extension.
std::string TracePath(const std::string& name);

std::string TraceText(const std::string& name);

// A line in the library's format; `fields` follows the event's name, such as "\"hCoP\":1".
std::string TraceLine(int seq, int ts_us, const std::string& event, const std::string& fields);

// As above, with the three handles before the other fields, which begin with a comma.
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

// A temporary file with this text, removed with the object. It was changed at the time of its last
// line, as if the trace's counter had begun in 1970, so that exports show the times of the lines.
class TemporaryTrace {
public:
    explicit TemporaryTrace(const std::string& text);
    // Changed at another time, in microseconds since 1970.
    TemporaryTrace(const std::string& text, std::uint64_t changed_us);
    ~TemporaryTrace();
    TemporaryTrace(const TemporaryTrace&) = delete;
    TemporaryTrace& operator=(const TemporaryTrace&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// The path of such a file with a trace from the folder traces.
std::string CounterTrace(const std::string& name);

#endif  // TESTS_DPDU_TRACE_FILES_H
