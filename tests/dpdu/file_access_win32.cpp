#include "file_access.h"

#include <windows.h>
// Other headers need windows.h before them.
#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <memory>

#include "wide_text.h"

namespace {

struct FreeLocal {
    void operator()(void* block) const { ::LocalFree(block); }
};

// The user of this process, as "S-1-5-…".
std::string UserSid() {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return "";
    alignas(TOKEN_USER) std::array<char, 256> user{};
    DWORD size = 0;
    const bool known = ::GetTokenInformation(token, TokenUser, user.data(), user.size(), &size);
    ::CloseHandle(token);
    char* text = nullptr;
    if (!known ||
        !::ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, &text)) {
        return "";
    }
    const std::unique_ptr<void, FreeLocal> owner(text);
    return text;
}

}  // namespace

// Full access for the user and, if requested, read access for everyone; nothing is inherited.
bool SetReaders(const std::string& path, Readers readers) {
    const std::string everyone = readers == Readers::kEveryone ? "(A;;FR;;;WD)" : "";
    const std::string text = "D:P(A;;FA;;;" + UserSid() + ")" + everyone;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1,
                                                                &descriptor, nullptr)) {
        return false;
    }
    const std::unique_ptr<void, FreeLocal> owner(descriptor);
    return ::SetFileSecurityW(Wide(path).c_str(), DACL_SECURITY_INFORMATION, descriptor) != 0;
}

namespace {

constexpr wchar_t kFolders[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
constexpr wchar_t kName[] = L"AppData";

void SetUserFolder(const std::string& folder) {
    const std::wstring wide = Wide(folder);
    ::RegSetKeyValueW(HKEY_CURRENT_USER, kFolders, kName, REG_SZ, wide.c_str(),
                      static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t)));
}

}  // namespace

UserFolder::UserFolder(const std::string& folder) {
    wchar_t before[1024] = {};
    DWORD size = sizeof before;
    ::RegGetValueW(HKEY_CURRENT_USER, kFolders, kName, RRF_RT_REG_SZ, nullptr, before, &size);
    before_ = Narrow(before);
    SetUserFolder(folder);
}

UserFolder::~UserFolder() { SetUserFolder(before_); }

UnreadableFile::UnreadableFile(const std::string& path)
    : path_(path),
      handle_(reinterpret_cast<std::intptr_t>(::CreateFileW(Wide(path).c_str(), GENERIC_READ, 0,
                                                            nullptr, OPEN_EXISTING, 0, nullptr))) {}

UnreadableFile::~UnreadableFile() { ::CloseHandle(reinterpret_cast<HANDLE>(handle_)); }

PortInUse::PortInUse(const std::string& path)
    : handle_(reinterpret_cast<std::intptr_t>(::CreateFileW(Wide(path).c_str(),
                                                            GENERIC_READ | GENERIC_WRITE, 0,
                                                            nullptr, OPEN_EXISTING, 0, nullptr))) {}

PortInUse::~PortInUse() {
    if (IsOpen()) ::CloseHandle(reinterpret_cast<HANDLE>(handle_));
}
