#include <windows.h>
// Other headers need windows.h before them.
#include <aclapi.h>

#include <array>
#include <memory>

#include "doctor/access.h"
#include "text/wide_win32.h"

namespace dpdu {
namespace {

struct FreeLocal {
    void operator()(void* block) const { ::LocalFree(block); }
};

struct WideGroup {
    WELL_KNOWN_SID_TYPE sid;
    const char* name;
};

// Groups with more than one member.
constexpr std::array<WideGroup, 3> kWideGroups = {{
    {WinWorldSid, "everyone"},
    {WinAuthenticatedUserSid, "every user who has logged in"},
    {WinBuiltinUsersSid, "the group Users"},
}};

const char* NameOfWideGroup(PSID sid) {
    for (const WideGroup& group : kWideGroups) {
        if (::IsWellKnownSid(sid, group.sid)) return group.name;
    }
    return nullptr;
}

// Null: the entry does not allow a group to read.
const char* ReaderOf(const ACE_HEADER* header) {
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE) return nullptr;
    const auto* entry = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(header);
    if ((entry->Mask & (FILE_READ_DATA | GENERIC_READ | GENERIC_ALL)) == 0) return nullptr;
    return NameOfWideGroup(const_cast<DWORD*>(&entry->SidStart));
}

}  // namespace

std::string OtherReaders(const std::string& path) {
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    std::wstring wide = ToWide(path);
    if (::GetNamedSecurityInfoW(wide.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS) {
        return "";
    }
    const std::unique_ptr<void, FreeLocal> owner(descriptor);
    if (list == nullptr) return "everyone";
    for (DWORD i = 0; i < list->AceCount; ++i) {
        void* entry = nullptr;
        if (!::GetAce(list, i, &entry)) continue;
        if (const char* reader = ReaderOf(static_cast<const ACE_HEADER*>(entry))) return reader;
    }
    return "";
}

std::string KeepToOwnerCommand(const std::string& path) {
    return "icacls \"" + path + "\" /inheritance:r /grant:r %USERNAME%:F";
}

bool CanCreateFilesIn(const std::string& folder) {
    const HANDLE opened =
        ::CreateFileW(ToWide(folder).c_str(), FILE_ADD_FILE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (opened == INVALID_HANDLE_VALUE) return false;
    ::CloseHandle(opened);
    return true;
}

std::string CreateFolderCommand(const std::string& folder) { return "mkdir \"" + folder + "\""; }

// Ports have no rights of their own: Windows refuses access to one that another program has open.
const int kErrorOfPortInUse = ERROR_ACCESS_DENIED;

OpenFailure WhyNotOpened(int error) {
    const bool is_in_use = error == kErrorOfPortInUse || error == ERROR_SHARING_VIOLATION;
    return is_in_use ? OpenFailure::kInUse : OpenFailure::kOther;
}

}  // namespace dpdu
