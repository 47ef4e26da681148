#include <windows.h>

#include "text/names.h"
#include "text/wide_win32.h"

namespace dpdu {

std::FILE* OpenFile(const std::string& path, const char* mode) {
    return ::_wfopen(ToWide(path).c_str(), ToWide(mode).c_str());
}

std::string EnvironmentText(const char* name) {
    const std::wstring wide_name = ToWide(name);
    std::wstring value(::GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0), L'\0');
    const DWORD length = ::GetEnvironmentVariableW(wide_name.c_str(), value.data(),
                                                   static_cast<DWORD>(value.size()));
    return FromWide(value.substr(0, length));
}

std::string TemporaryFolder() {
    std::error_code error;
    return TextOf(std::filesystem::temp_directory_path(error));
}

std::optional<std::uint64_t> ChangedUs(const std::string& path) {
    constexpr std::uint64_t kFrom1601To1970Us = 11'644'473'600'000'000;
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (!::GetFileAttributesExW(ToWide(path).c_str(), GetFileExInfoStandard, &data)) {
        return std::nullopt;
    }
    const FILETIME& time = data.ftLastWriteTime;  // in units of 100 ns
    const std::uint64_t units = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    return units / 10 - kFrom1601To1970Us;
}

}  // namespace dpdu
