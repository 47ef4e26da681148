#include "file_access.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace {

constexpr char kVariable[] = "XDG_CONFIG_HOME";

}  // namespace

UserFolder::UserFolder(const std::string& folder) {
    const char* before = std::getenv(kVariable);
    before_ = before ? before : "";
    setenv(kVariable, folder.c_str(), 1);
}

UserFolder::~UserFolder() { setenv(kVariable, before_.c_str(), 1); }

bool SetReaders(const std::string& path, Readers readers) {
    return chmod(path.c_str(), readers == Readers::kEveryone ? 0644 : 0600) == 0;
}

// Nothing is mapped at the beginning of a process's memory.
UnreadableFile::UnreadableFile(const std::string& path) : path_(path) {
    unlink(path.c_str());
    if (symlink("/proc/self/mem", path.c_str()) == 0) handle_ = 0;
}

UnreadableFile::~UnreadableFile() { unlink(path_.c_str()); }

PortInUse::PortInUse(const std::string& path)
    : handle_(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (flock(static_cast<int>(handle_), LOCK_EX | LOCK_NB) != 0) handle_ = -1;
}

PortInUse::~PortInUse() {
    if (IsOpen()) close(static_cast<int>(handle_));
}
