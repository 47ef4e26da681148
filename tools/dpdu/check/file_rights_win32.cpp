#include <windows.h>
// Other headers need windows.h before them.
#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <filesystem>
#include <memory>

#include "check/file_rights.h"
#include "text/names.h"
#include "text/wide_win32.h"

namespace dpdu::check {
namespace {

// Those that let a user change a file, change what is in a folder, or replace what is below one.
constexpr DWORD kChangesRights = WRITE_DAC | WRITE_OWNER | DELETE | GENERIC_WRITE | GENERIC_ALL;
constexpr DWORD kChangesFile = kChangesRights | FILE_WRITE_DATA | FILE_APPEND_DATA;
constexpr DWORD kChangesFolder = kChangesRights | FILE_ADD_FILE | FILE_DELETE_CHILD;
constexpr DWORD kReplacesFolder = kChangesRights | FILE_DELETE_CHILD;

constexpr wchar_t kTrustedInstaller[] =
    L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";

struct FreeLocal {
    void operator()(void* block) const { ::LocalFree(block); }
};
using Local = std::unique_ptr<void, FreeLocal>;

bool IsTrustedInstaller(PSID sid) {
    wchar_t* text = nullptr;
    if (!::ConvertSidToStringSidW(sid, &text)) return false;
    const Local owner(text);
    return std::wstring_view(text) == kTrustedInstaller;
}

bool IsAdministrator(PSID sid) {
    return ::IsWellKnownSid(sid, WinBuiltinAdministratorsSid) ||
           ::IsWellKnownSid(sid, WinLocalSystemSid) ||
           ::IsWellKnownSid(sid, WinCreatorOwnerRightsSid) || IsTrustedInstaller(sid);
}

std::string NameOf(PSID sid) {
    std::array<wchar_t, 256> name{};
    std::array<wchar_t, 256> domain{};
    DWORD name_size = name.size();
    DWORD domain_size = domain.size();
    SID_NAME_USE use = SidTypeUnknown;
    if (::LookupAccountSidW(nullptr, sid, name.data(), &name_size, domain.data(), &domain_size,
                            &use)) {
        return FromWide(name.data());
    }
    return "an unknown user";
}

// Null: the entry gives none of the rights, or to administrators.
PSID WriterIn(const ACE_HEADER* header, DWORD rights) {
    const bool is_for_this = (header->AceFlags & INHERIT_ONLY_ACE) == 0;
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE || !is_for_this) return nullptr;
    const auto* entry = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(header);
    const PSID sid = const_cast<DWORD*>(&entry->SidStart);
    return (entry->Mask & rights) != 0 && !IsAdministrator(sid) ? sid : nullptr;
}

// Empty: nobody else.
std::string WriterOf(const std::filesystem::path& path, DWORD rights) {
    PACL list = nullptr;
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    std::wstring wide = path.wstring();
    if (::GetNamedSecurityInfoW(wide.data(), SE_FILE_OBJECT,
                                OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner,
                                nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS) {
        return "";
    }
    const Local keep(descriptor);
    if (list == nullptr) return "every user";
    for (DWORD i = 0; i < list->AceCount; ++i) {
        void* entry = nullptr;
        if (!::GetAce(list, i, &entry)) continue;
        const PSID writer = WriterIn(static_cast<const ACE_HEADER*>(entry), rights);
        if (writer != nullptr) return NameOf(writer);
    }
    // An owner can give himself any right.
    return owner != nullptr && !IsAdministrator(owner) ? NameOf(owner) : "";
}

// `rights` are those that matter at this file or folder.
std::optional<Writer> WriterOnTheWayTo(std::filesystem::path at, DWORD rights) {
    for (;; at = at.parent_path()) {
        const std::string who = WriterOf(at, rights);
        if (!who.empty()) return Writer{TextOf(at), who};
        if (at == at.parent_path()) return std::nullopt;
        rights = rights == kChangesFile ? kChangesFolder : kReplacesFolder;
    }
}

}  // namespace

// Whoever can replace a link can lead it elsewhere, so its folders count too.
std::optional<Writer> OtherWriter(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(PathOf(path), error);
    if (error) return std::nullopt;
    const auto writer = WriterOnTheWayTo(target, kChangesFile);
    if (writer) return writer;
    const auto written = std::filesystem::absolute(PathOf(path)).lexically_normal();
    return WriterOnTheWayTo(written.parent_path(), kChangesFolder);
}

}  // namespace dpdu::check
