#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>

#include <cstdio>

#include "platform/console.h"
#include "unit/faults/console_fault.h"
#include "unit/test_support.h"

namespace tarvik {
namespace {

// Standard output is a pipe while it lives.
class OutputPipe {
public:
    OutputPipe() {
        std::fflush(stdout);
        before_ = ::_dup(::_fileno(stdout));
        int write_end = -1;
        int ends[2] = {-1, -1};
        EXPECT_EQ(::_pipe(ends, 4096, _O_BINARY), 0);
        read_end_ = ends[0];
        write_end = ends[1];
        ::_dup2(write_end, ::_fileno(stdout));
        ::_close(write_end);
    }
    ~OutputPipe() {
        ::_dup2(before_, ::_fileno(stdout));
        ::_close(before_);
        ::_close(read_end_);
    }
    OutputPipe(const OutputPipe&) = delete;
    OutputPipe& operator=(const OutputPipe&) = delete;

private:
    int before_ = -1;
    int read_end_ = -1;
};

// The question would wait while a thread writes to the pipe.
TEST(StandardOutput, PipeIsAskedForItsTypeOnce) {
    const OutputPipe pipe;
    EXPECT_TRUE(OsStandardOutputMayWait());
    const int before = test::FileTypeQuestions();
    EXPECT_TRUE(OsStandardOutputMayWait());
    EXPECT_EQ(test::FileTypeQuestions(), before);
}

TEST(StandardOutput, IsAskedAgainWhenItHasBeenReplaced) {
    for (int i = 0; i < 2; ++i) {
        const OutputPipe pipe;
        EXPECT_TRUE(OsStandardOutputMayWait());
        const test::StdoutCapture file;
        OsPrint("text\n", 5);  // it may have the pipe's number
        EXPECT_FALSE(OsStandardOutputMayWait());
    }
}

}  // namespace
}  // namespace tarvik
