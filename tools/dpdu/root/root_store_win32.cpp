#include <windows.h>
// Other headers need windows.h before them.
#include <aclapi.h>
#include <shlobj.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "console/failure.h"
#include "root/root_store.h"
#include "root/root_store_system.h"
#include "text/names.h"
#include "text/wide_win32.h"

namespace dpdu::root {
namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\D-PDU API";
constexpr wchar_t kValue[] = L"Root File";
constexpr char kShownValue[] = "\"Root File\" of HKEY_LOCAL_MACHINE\\SOFTWARE\\D-PDU API";
constexpr wchar_t kFolder[] = L"D-PDU API";
constexpr wchar_t kFile[] = L"pdu_api_root_x64.xml";
constexpr std::chrono::seconds kLockLimit{10};
constexpr std::chrono::milliseconds kLockPoll{20};

std::string ErrorText(DWORD error) {
    std::array<wchar_t, 512> text{};
    const DWORD length =
        ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                         0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    std::string line = FromWide({text.data(), length});
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == '.'))
        line.pop_back();
    return line.empty() ? "error " + std::to_string(error) : line;
}

class File {
public:
    explicit File(HANDLE handle) : handle_(handle) {}
    ~File() {
        if (IsOpen()) ::CloseHandle(handle_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return handle_; }

private:
    HANDLE handle_;
};

// The system's error, or ERROR_SUCCESS.
DWORD WriteAll(HANDLE file, const std::string& text) {
    DWORD count = 0;
    if (!::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &count, nullptr)) {
        return ::GetLastError();
    }
    if (count != text.size()) return ERROR_DISK_FULL;
    return ::FlushFileBuffers(file) ? ERROR_SUCCESS : ::GetLastError();
}

// The list of rights of `from`, where it has one of its own; otherwise those of the folder hold.
void CopyRights(const std::string& from, const std::string& to) {
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    std::wstring wide = ToWide(from);
    if (::GetNamedSecurityInfoW(wide.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS) {
        return;
    }
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    ::GetSecurityDescriptorControl(descriptor, &control, &revision);
    if ((control & SE_DACL_PROTECTED) != 0) {
        std::wstring target = ToWide(to);
        ::SetNamedSecurityInfoW(target.data(), SE_FILE_OBJECT,
                                DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, list, nullptr);
    }
    ::LocalFree(descriptor);
}

class Key {
public:
    ~Key() {
        if (key_ != nullptr) ::RegCloseKey(key_);
    }
    Key() = default;
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    HKEY* Out() { return &key_; }
    HKEY Get() const { return key_; }

private:
    HKEY key_ = nullptr;
};

// The file itself was changed before.
[[noreturn]] void RefuseRegistry(LSTATUS status, const std::string& path, const char* state) {
    ::SetLastError(static_cast<DWORD>(status));
    RefuseChange(kShownValue, "changed", path + " was " + state + " all the same");
}

// Removes the key if it has neither values nor other keys.
void RemoveKeyIfEmpty() {
    DWORD keys = 1;
    DWORD values = 1;
    {
        Key key;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ | KEY_WOW64_64KEY, key.Out()) !=
            ERROR_SUCCESS) {
            return;
        }
        ::RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values,
                           nullptr, nullptr, nullptr, nullptr);
    }
    if (keys == 0 && values == 0) {
        ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kKey, KEY_WOW64_64KEY, 0);
    }
}

}  // namespace

void RefuseChange(const std::string& path, const std::string& what, const std::string& outcome) {
    const DWORD error = ::GetLastError();
    std::string line = path + " cannot be " + what + " (" + ErrorText(error) + ")";
    if (error == ERROR_ACCESS_DENIED) line += "; run this as administrator";
    if (error == ERROR_SHARING_VIOLATION) line += "; close the program that has it open";
    if (error == ERROR_DISK_FULL) line += "; make room and try again";
    throw Failure(line + "; " + outcome);
}

void WriteNewFile(const std::string& path, const std::string& text, const std::string& like) {
    RemoveFile(path);
    DWORD error = ERROR_SUCCESS;
    {
        const File file(::CreateFileW(ToWide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file.IsOpen()) RefuseChange(path, "created");
        error = WriteAll(file.Get(), text);
    }
    if (error != ERROR_SUCCESS) {
        RemoveFile(path);
        ::SetLastError(error);
        RefuseChange(path, "written");
    }
    CopyRights(like, path);
}

bool RenameFile(const std::string& from, const std::string& to) {
    return ::MoveFileExW(ToWide(from).c_str(), ToWide(to).c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool RemoveFile(const std::string& path) { return ::DeleteFileW(ToWide(path).c_str()) != 0; }

void SyncFolderOf(const std::string&) {}

std::string RegisteredRootFile() {
    std::vector<wchar_t> value(32'768);  // the longest path that Windows has
    auto size = static_cast<DWORD>(value.size() * sizeof(wchar_t));
    // This type also has the variables of a REG_EXPAND_SZ replaced.
    const LSTATUS status =
        ::RegGetValueW(HKEY_LOCAL_MACHINE, kKey, kValue, RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY,
                       nullptr, value.data(), &size);
    if (status == ERROR_FILE_NOT_FOUND) return "";
    // Another's, which is not replaced.
    std::string path = status == ERROR_SUCCESS ? FromWide(value.data()) : "";
    if (!PathOf(path).is_absolute()) {
        throw Failure(std::string(kShownValue) +
                      " in the registry names no file with its full path; correct or remove it; "
                      "nothing was changed");
    }
    return path;
}

std::string UsualRootFile() {
    PWSTR folder = nullptr;
    const HRESULT result = ::SHGetKnownFolderPath(FOLDERID_ProgramFilesX64, 0, nullptr, &folder);
    const std::wstring programs = SUCCEEDED(result) ? folder : L"C:\\Program Files";
    ::CoTaskMemFree(folder);
    return FromWide(programs + L"\\" + kFolder + L"\\" + kFile);
}

void RegisterRootFile(const std::string& path) {
    if (!RegisteredRootFile().empty()) return;
    Key key;
    LSTATUS status =
        ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_SET_VALUE | KEY_WOW64_64KEY,
                          nullptr, key.Out(), nullptr);
    if (status != ERROR_SUCCESS) RefuseRegistry(status, path, "written");
    const std::wstring wide = ToWide(path);
    status =
        ::RegSetValueExW(key.Get(), kValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                         static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t)));
    if (status != ERROR_SUCCESS) RefuseRegistry(status, path, "written");
}

void UnregisterRootFile(const std::string& path) {
    if (path != UsualRootFile() || RegisteredRootFile() != path) return;
    {
        Key key;
        const LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0,
                                               KEY_SET_VALUE | KEY_WOW64_64KEY, key.Out());
        if (status != ERROR_SUCCESS) RefuseRegistry(status, path, "removed");
        ::RegDeleteValueW(key.Get(), kValue);
    }
    RemoveKeyIfEmpty();
}

// The system removes the file when its handle is closed, also if the process is ended.
struct RootFileLock::Held {
    File file;
};

RootFileLock::RootFileLock(const std::string& path) {
    const std::wstring lock_path = ToWide(path + ".lock");
    const auto deadline = std::chrono::steady_clock::now() + kLockLimit;
    for (;;) {
        const HANDLE file = ::CreateFileW(lock_path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr,
                                          OPEN_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        const DWORD error = ::GetLastError();
        if (file != INVALID_HANDLE_VALUE) {
            held_ = std::unique_ptr<Held>(new Held{File(file)});
            // Left by an installer that was ended.
            RemoveFile(NewNameOf(path));
            RemoveFile(NewNameOf(BackupOf(path)));
            return;
        }
        // A file that is about to be removed denies access; so does a folder, for ever.
        const bool may_be_held = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED ||
                                 error == ERROR_DELETE_PENDING;
        const bool is_over = std::chrono::steady_clock::now() >= deadline;
        if (!may_be_held || (is_over && error != ERROR_SHARING_VIOLATION)) {
            ::SetLastError(error);
            RefuseChange(path, "changed");
        }
        if (is_over) {
            throw Failure("another installer has been changing " + path +
                          " for 10 s; wait until it ends and try again; nothing was changed");
        }
        std::this_thread::sleep_for(kLockPoll);
    }
}

RootFileLock::~RootFileLock() = default;

std::string FinalPath(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(PathOf(path), error);
    return error ? path : TextOf(target);
}

std::optional<std::string> ReadWholeFile(const std::string& path) {
    const File file(::CreateFileW(ToWide(path).c_str(), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD error = ::GetLastError();
    const bool is_missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    if (!file.IsOpen() && is_missing) return std::nullopt;
    if (!file.IsOpen()) RefuseChange(path, "read");
    std::string text;
    std::array<char, 65536> block;
    for (;;) {
        DWORD count = 0;
        if (!::ReadFile(file.Get(), block.data(), block.size(), &count, nullptr)) {
            RefuseChange(path, "read");
        }
        if (count == 0) return text;
        text.append(block.data(), count);
    }
}

void RequireWritable(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesW(ToWide(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return;  // a new file
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        throw Failure(path + " is not a file; name another; nothing was changed");
    }
    const File file(::CreateFileW(ToWide(path).c_str(), GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsOpen()) RefuseChange(path, "written");
}

}  // namespace dpdu::root
