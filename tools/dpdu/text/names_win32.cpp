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

}  // namespace dpdu
