#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace tarvik {

// Paths are UTF-8 on Windows, and the bytes that the system has on Linux. A path has at most 259
// characters of the system; a longer one is of no file. With the NUL:
#ifdef _WIN32
inline constexpr std::size_t kMaxPath = 259 * 3 + 1;  // UTF-16, each at most three bytes of UTF-8
#else
inline constexpr std::size_t kMaxPath = 260;
#endif

// The temporary folder with its trailing separator. Returns its length: if it is not below the
// capacity, the folder is too long and nothing usable was written; 0: the call failed.
std::uint32_t OsTempPath(char* path, std::uint32_t capacity);
// Used when there is none ("C:\temp\" / "/tmp/").
const char* OsFallbackTempPath();

// The per-user folder for application data, without trailing separator. False: unknown.
bool OsUserDataFolder(char* path, std::size_t capacity);
// The folder of the file that contains this library, without trailing separator.
bool OsLibraryFolder(char* path, std::size_t capacity);
// '\\' or '/'.
extern const char kPathSeparator;
// "\r\n" or "\n".
extern const char* const kTextLineEnd;

bool OsFileExists(const char* path);
// Opens an existing file for writing as a test, shared for reading and writing, and closes it.
bool OsFileWritable(const char* path);
// Creates a folder; an existing one is success.
bool OsCreateFolder(const char* path);
// The file that `path` leads to through symbolic links, or `path` itself. False: it does not fit.
bool OsFinalPath(const char* path, char* target, std::size_t capacity);
// Renames `from` to `to`, a file of the same folder, in one step that survives a power failure. An
// existing `to` is replaced. Where files have owners, that of the replaced file is kept; if this is
// not possible, nothing is replaced.
bool OsReplaceFile(const char* from, const char* to);
bool OsRemoveFile(const char* path);

// Append-only file for the trace.
struct OsAppendFile;
enum class CreateFileResult : std::uint8_t { kCreated, kExists, kFailed };
// Creates the file, never opens an existing one; shared for reading and writing.
CreateFileResult OsAppendFileCreate(const char* path, OsAppendFile** file);
std::uint64_t OsAppendFileSize(OsAppendFile* file);
// Reads up to `size` bytes at `offset`. Returns the number read.
std::size_t OsAppendFileReadAt(OsAppendFile* file, std::uint64_t offset, void* data,
                               std::size_t size);
bool OsAppendFileTruncate(OsAppendFile* file, std::uint64_t size);  // and continue at its end
bool OsAppendFileWrite(OsAppendFile* file, const void* data, std::size_t size);
bool OsAppendFileFlush(OsAppendFile* file);  // to disk
void OsAppendFileClose(OsAppendFile* file);

// As fopen, but the path is read as in the rest of this header, and child processes do not inherit
// the descriptor. Where files have modes, a new file is for the user alone. A file to append to may
// be in a folder that all users share: only a regular file without another name is opened, where
// files have owners only the user's own and never through a link, and opening never blocks.
std::FILE* OsOpenStream(const char* path, const char* mode);

}  // namespace tarvik
