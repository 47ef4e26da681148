#include "commands/target_file.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "console/failure.h"
#include "text/names.h"

namespace dpdu {
namespace {

std::string FreeNameBeside(const std::string& path) {
    std::error_code ignored;
    for (int number = 1;; ++number) {
        std::string name = path + "." + std::to_string(number) + ".part";
        if (!std::filesystem::exists(std::filesystem::symlink_status(PathOf(name), ignored))) {
            return name;
        }
    }
}

}  // namespace

TargetFile::TargetFile(const std::string& path) : path_(path), written_(path) {
    std::error_code ignored;
    const auto status = std::filesystem::status(PathOf(path), ignored);
    if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) {
        if (std::filesystem::exists(status)) {
            path_ = TextOf(std::filesystem::canonical(PathOf(path)));
        }
        written_ = FreeNameBeside(path_);
    }
    file_ = OpenFile(written_, "wb");
    if (file_ == nullptr) ThrowUnwritable();
}

TargetFile::~TargetFile() {
    if (file_ != nullptr) std::fclose(file_);
    std::error_code ignored;
    if (written_ != path_) std::filesystem::remove(PathOf(written_), ignored);
}

void TargetFile::Keep() {
    const bool was_written = std::fflush(file_) == 0 && std::ferror(file_) == 0;
    if (!was_written) ThrowUnwritable();
    const bool was_closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!was_closed) ThrowUnwritable();
    if (written_ == path_) return;
    std::error_code error;
    std::filesystem::rename(PathOf(written_), PathOf(path_), error);
    // The system's own message may be in another encoding.
    const std::string reason = error.default_error_condition().message();
    if (error) throw Failure("cannot write '" + path_ + "': " + reason);
    written_ = path_;
}

void TargetFile::ThrowUnwritable() const {
    throw Failure("cannot write '" + path_ + "': " + std::generic_category().message(errno));
}

}  // namespace dpdu
