#include <windows.h>

#include <array>
#include <string>

#include "pdu/library_loader.h"

namespace dpdu {
namespace {

std::string LastErrorText() {
    const DWORD code = ::GetLastError();
    std::array<char, 512> text{};
    DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                    nullptr, code, 0, text.data(), text.size(), nullptr);
    while (length > 0 && static_cast<unsigned char>(text[length - 1]) <= ' ')
        --length;
    return std::string(text.data(), length) + " (error " + std::to_string(code) + ")";
}

}  // namespace

LoadedLibrary LoadSharedLibrary(const std::string& path) {
    std::array<char, 4096> full{};
    const DWORD length = ::GetFullPathNameA(path.c_str(), full.size(), full.data(), nullptr);
    const bool is_full = length > 0 && length < full.size();

    LoadedLibrary loaded;
    // With the altered search path a vendor's library finds the libraries beside it.
    loaded.handle = ::LoadLibraryExA(is_full ? full.data() : path.c_str(), nullptr,
                                     is_full ? LOAD_WITH_ALTERED_SEARCH_PATH : 0);
    if (!loaded.handle) loaded.error = LastErrorText();
    return loaded;
}

void* FindFunction(void* library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

std::string DefaultLibraryPath() {
    std::array<char, 4096> buffer{};
    const DWORD length = ::GetModuleFileNameA(nullptr, buffer.data(), buffer.size());
    const std::string program(buffer.data(), length);
    const std::size_t slash = program.rfind('\\');
    const std::string folder = slash == std::string::npos ? "" : program.substr(0, slash + 1);
    return folder + "tarvik_dpdu_x64.dll";
}

}  // namespace dpdu
