#include "file_access.h"

#include <sys/stat.h>

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
