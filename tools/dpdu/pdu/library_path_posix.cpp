#include <unistd.h>

#include <array>
#include <string>

#include "pdu/library_path.h"

namespace dpdu {

// Given a bare file name, dlopen looks in the system's folders only.
std::string PathToLoad(const std::string& path) {
    const bool is_bare = path.find('/') == std::string::npos;
    return is_bare && access(path.c_str(), F_OK) == 0 ? "./" + path : path;
}

std::string DefaultLibraryPath() {
    std::array<char, 4096> buffer{};
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string program(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::size_t slash = program.rfind('/');
    const std::string folder = slash == std::string::npos ? "./" : program.substr(0, slash + 1);
    std::string beside = folder + "libtarvik_dpdu_x64.so";
    std::string installed = folder + DPDU_INSTALLED_LIBRARY;
    const bool is_installed =
        access(beside.c_str(), F_OK) != 0 && access(installed.c_str(), F_OK) == 0;
    return is_installed ? installed : beside;
}

}  // namespace dpdu
