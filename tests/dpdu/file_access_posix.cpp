#include "file_access.h"

#include <sys/stat.h>

bool SetReaders(const std::string& path, Readers readers) {
    return chmod(path.c_str(), readers == Readers::kEveryone ? 0644 : 0600) == 0;
}
