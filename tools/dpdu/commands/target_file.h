// A file that a command writes as a whole.

#ifndef TOOLS_DPDU_COMMANDS_TARGET_FILE_H
#define TOOLS_DPDU_COMMANDS_TARGET_FILE_H

#include <cstdio>
#include <string>

namespace dpdu {

// It has its former contents, or does not exist, until Keep(). A device or a pipe is written to as
// it is. The constructor and Keep() throw Failure if the file cannot be written.
class TargetFile {
public:
    explicit TargetFile(const std::string& path);
    ~TargetFile();
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    std::FILE* Stream() const { return file_; }
    // Call it after the last write to the stream.
    void Keep();

private:
    [[noreturn]] void ThrowUnwritable() const;

    std::string path_;
    std::string written_;  // renamed to path_ in the end, or path_ itself
    std::FILE* file_ = nullptr;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_TARGET_FILE_H
