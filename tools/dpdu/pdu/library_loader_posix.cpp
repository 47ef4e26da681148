#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <string>

#include "pdu/library_loader.h"

namespace dpdu {
namespace {

// dlopen looks for a bare file name in the system's folders only; a user who types one means the
// file in the current folder.
std::string PathToOpen(const std::string& path) {
    const bool is_bare = path.find('/') == std::string::npos;
    return is_bare && access(path.c_str(), F_OK) == 0 ? "./" + path : path;
}

// The loader's message, without the leading path.
std::string ReasonFor(const std::string& opened) {
    const char* text = dlerror();
    const std::string reason = text ? text : "unknown reason";
    const std::string head = opened + ": ";
    return reason.compare(0, head.size(), head) == 0 ? reason.substr(head.size()) : reason;
}

}  // namespace

LoadedLibrary LoadSharedLibrary(const std::string& path) {
    const std::string opened = PathToOpen(path);
    LoadedLibrary loaded;
    loaded.handle = dlopen(opened.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!loaded.handle) loaded.error = ReasonFor(opened);
    return loaded;
}

void* FindFunction(void* library, const char* name) { return dlsym(library, name); }

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
