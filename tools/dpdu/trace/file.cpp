#include "trace/file.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <vector>

#include "console/failure.h"
#include "console/interruption.h"
#include "text/names.h"

namespace dpdu::trace {
namespace {

constexpr std::size_t kPieceSize = std::size_t{256} * 1024;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

[[noreturn]] void ThrowUnreadable(const std::string& path, int error) {
    throw Failure("cannot read '" + path + "': " + std::generic_category().message(error));
}

}  // namespace

ReadReport ReadTraceFile(const std::string& path, const LineReader::Handler& handler) {
    const std::unique_ptr<std::FILE, CloseFile> file(OpenFile(path, "rb"));
    if (!file) ThrowUnreadable(path, errno);
    LineReader reader(handler);
    std::vector<char> piece(kPieceSize);
    for (;;) {
        ThrowIfInterrupted();
        const std::size_t size = std::fread(piece.data(), 1, piece.size(), file.get());
        if (size == 0 && std::ferror(file.get())) ThrowUnreadable(path, errno);
        if (size == 0) break;
        reader.Feed({piece.data(), size});
    }
    reader.Finish();
    return reader.Report();
}

}  // namespace dpdu::trace
