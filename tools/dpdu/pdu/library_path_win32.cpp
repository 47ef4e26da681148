#include <windows.h>

#include <array>
#include <string>

#include "pdu/library_path.h"
#include "text/wide_win32.h"

namespace dpdu {

// Windows completes a bare file name with the current folder when the library is loaded.
std::string PathToLoad(const std::string& path) { return path; }

std::string DefaultLibraryPath() {
    std::array<wchar_t, 4096> buffer{};
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer.data(), buffer.size());
    const std::string program = FromWide({buffer.data(), length});
    const std::size_t slash = program.rfind('\\');
    const std::string folder = slash == std::string::npos ? "" : program.substr(0, slash + 1);
    return folder + "tarvik_dpdu_x64.dll";
}

}  // namespace dpdu
