#include "platform/files.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <shlobj.h>
#include <sys/stat.h>

#include <cstring>
#include <cwchar>
#include <new>

#include "platform/win32/utf16.h"

namespace tarvik {

const char kPathSeparator = '\\';
const char* const kTextLineEnd = "\r\n";

struct OsAppendFile {
    HANDLE handle;
};

namespace {

// False: it does not fit.
bool CopyPath(char* path, std::size_t capacity, const char* from) {
    const std::size_t length = std::strlen(from);
    if (length >= capacity) return false;
    std::memcpy(path, from, length + 1);
    return true;
}

bool Seek(OsAppendFile* file, std::uint64_t offset, DWORD origin) {
    LARGE_INTEGER distance;
    distance.QuadPart = static_cast<LONGLONG>(offset);
    return ::SetFilePointerEx(file->handle, distance, nullptr, origin) != 0;
}

// The flags of _open for this mode string.
int OpenFlags(const char* mode) {
    const bool update = std::strchr(mode, '+') != nullptr;
    int flags = _O_NOINHERIT | (std::strchr(mode, 'b') != nullptr ? _O_BINARY : _O_TEXT);
    switch (*mode) {
        case 'r':
            return flags | (update ? _O_RDWR : _O_RDONLY);
        case 'w':
            return flags | _O_CREAT | _O_TRUNC | (update ? _O_RDWR : _O_WRONLY);
        default:
            return flags | _O_CREAT | _O_APPEND | (update ? _O_RDWR : _O_WRONLY);
    }
}

bool IsFileWithOneName(int descriptor) {
    const auto handle = reinterpret_cast<HANDLE>(::_get_osfhandle(descriptor));
    BY_HANDLE_FILE_INFORMATION found;
    return ::GetFileType(handle) == FILE_TYPE_DISK &&
           ::GetFileInformationByHandle(handle, &found) && found.nNumberOfLinks == 1;
}

}  // namespace

// Three bytes for each character: one that needs four is two of UTF-16.
static_assert(kMaxPath == (MAX_PATH - 1) * 3 + 1);

std::uint32_t OsTempPath(char* path, std::uint32_t capacity) {
    wchar_t folder[MAX_PATH];
    const DWORD length = ::GetTempPathW(MAX_PATH, folder);
    if (length >= MAX_PATH) return capacity + 1;
    char text[kMaxPath];
    const std::size_t size = length > 0 ? ToUtf8(folder, text, sizeof text) : 0;
    if (size == 0) return 0;
    if (size > capacity) return static_cast<std::uint32_t>(size);
    std::memcpy(path, text, size);
    return static_cast<std::uint32_t>(size - 1);
}

const char* OsFallbackTempPath() { return "C:\\temp\\"; }

bool OsUserDataFolder(char* path, std::size_t capacity) {
    wchar_t folder[MAX_PATH];
    if (FAILED(::SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder))) {
        return false;
    }
    return ToUtf8(folder, path, capacity) > 0;
}

bool OsLibraryFolder(char* path, std::size_t capacity) {
    HMODULE module = nullptr;
    if (!::GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCWSTR>(&OsLibraryFolder), &module)) {
        return false;
    }
    wchar_t file[MAX_PATH];
    const DWORD length = ::GetModuleFileNameW(module, file, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return false;
    wchar_t* separator = std::wcsrchr(file, L'\\');
    if (separator == nullptr) return false;
    *separator = L'\0';
    return ToUtf8(file, path, capacity) > 0;
}

bool OsFileExists(const char* path) {
    const DWORD attributes = ::GetFileAttributesW(WidePath(path).Get());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool OsFileWritable(const char* path) {
    const HANDLE file =
        ::CreateFileW(WidePath(path).Get(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    ::CloseHandle(file);
    return true;
}

bool OsCreateFolder(const char* path) {
    if (::CreateDirectoryW(WidePath(path).Get(), nullptr)) return true;
    const DWORD error = ::GetLastError();
    return error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS;
}

bool OsFinalPath(const char* path, char* target, std::size_t capacity) {
    return CopyPath(target, capacity, path);
}

bool OsReplaceFile(const char* from, const char* to) {
    return ::MoveFileExW(WidePath(from).Get(), WidePath(to).Get(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool OsRemoveFile(const char* path) { return ::DeleteFileW(WidePath(path).Get()) != 0; }

CreateFileResult OsAppendFileCreate(const char* path, OsAppendFile** file) {
    const HANDLE handle = ::CreateFileW(WidePath(path).Get(), GENERIC_READ | GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS
                   ? CreateFileResult::kExists
                   : CreateFileResult::kFailed;
    }
    *file = new (std::nothrow) OsAppendFile{handle};
    if (*file != nullptr) return CreateFileResult::kCreated;
    ::CloseHandle(handle);
    return CreateFileResult::kFailed;
}

std::uint64_t OsAppendFileSize(OsAppendFile* file) {
    LARGE_INTEGER size;
    return ::GetFileSizeEx(file->handle, &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

std::size_t OsAppendFileReadAt(OsAppendFile* file, std::uint64_t offset, void* data,
                               std::size_t size) {
    DWORD got = 0;
    if (!Seek(file, offset, FILE_BEGIN)) return 0;
    if (!::ReadFile(file->handle, data, static_cast<DWORD>(size), &got, nullptr)) return 0;
    return got;
}

bool OsAppendFileTruncate(OsAppendFile* file, std::uint64_t size) {
    return Seek(file, size, FILE_BEGIN) && ::SetEndOfFile(file->handle) != 0;
}

bool OsAppendFileWrite(OsAppendFile* file, const void* data, std::size_t size) {
    DWORD put = 0;
    return Seek(file, 0, FILE_END) &&
           ::WriteFile(file->handle, data, static_cast<DWORD>(size), &put, nullptr) != 0 &&
           put == size;
}

bool OsAppendFileFlush(OsAppendFile* file) { return ::FlushFileBuffers(file->handle) != 0; }

void OsAppendFileClose(OsAppendFile* file) {
    if (file == nullptr) return;
    ::CloseHandle(file->handle);
    delete file;
}

std::FILE* OsOpenStream(const char* path, const char* mode) {
    const int descriptor =
        ::_wsopen(WidePath(path).Get(), OpenFlags(mode), _SH_DENYNO, _S_IREAD | _S_IWRITE);
    if (descriptor < 0) return nullptr;
    const bool usable = *mode != 'a' || IsFileWithOneName(descriptor);
    std::FILE* stream = usable ? ::_fdopen(descriptor, mode) : nullptr;
    if (stream == nullptr) ::_close(descriptor);
    return stream;
}

}  // namespace tarvik
