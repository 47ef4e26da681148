#include <windows.h>

#include <array>
#include <string>

#include "pdu/library_loader.h"
#include "text/wide_win32.h"

namespace dpdu {
namespace {

std::string LastErrorText() {
    const DWORD code = ::GetLastError();
    std::array<wchar_t, 512> text{};
    DWORD length = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                    nullptr, code, 0, text.data(), text.size(), nullptr);
    while (length > 0 && text[length - 1] <= L' ')
        --length;
    return FromWide({text.data(), length}) + " (error " + std::to_string(code) + ")";
}

}  // namespace

LoadedLibrary LoadSharedLibrary(const std::string& path) {
    const std::wstring wide = ToWide(path);
    std::array<wchar_t, 4096> full{};
    const DWORD length = ::GetFullPathNameW(wide.c_str(), full.size(), full.data(), nullptr);
    const bool is_full = length > 0 && length < full.size();

    LoadedLibrary loaded;
    // With the altered search path a vendor's library finds the libraries beside it.
    loaded.handle = ::LoadLibraryExW(is_full ? full.data() : wide.c_str(), nullptr,
                                     is_full ? LOAD_WITH_ALTERED_SEARCH_PATH : 0);
    if (!loaded.handle) loaded.error = LastErrorText();
    return loaded;
}

void* FindFunction(void* library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

std::string DefaultLibraryPath() {
    std::array<wchar_t, 4096> buffer{};
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer.data(), buffer.size());
    const std::string program = FromWide({buffer.data(), length});
    const std::size_t slash = program.rfind('\\');
    const std::string folder = slash == std::string::npos ? "" : program.substr(0, slash + 1);
    return folder + "tarvik_dpdu_x64.dll";
}

}  // namespace dpdu
