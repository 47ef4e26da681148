#include <cstdlib>

#include "text/names.h"

namespace dpdu {

std::FILE* OpenFile(const std::string& path, const char* mode) {
    return std::fopen(path.c_str(), mode);
}

std::string EnvironmentText(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace dpdu
