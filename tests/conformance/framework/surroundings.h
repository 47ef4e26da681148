#pragma once

// The folders for configuration, log and trace of this process's library. They are private, so that
// programs that run at the same time do not share them.

#include <cstddef>
#include <string>
#include <vector>

namespace conformance {

// Without a separator at the end. Created by the first call, deleted when the process ends.
const std::string& PrivateFolder();

std::string TempFolder();  // also without a separator at the end
std::string UserFolder();
// For tests in a fresh process, before the library is loaded: uses another folder, which need not
// exist.
void MoveTempFolder(const std::string& folder);

std::string UserConfigPath();
std::string LibraryPath();        // of the library under test
std::string LibraryConfigPath();  // beside it
// For tests in a fresh process, before the library is loaded: loads a copy in a private folder, so
// that a test can put a configuration beside it.
void UseLibraryCopy(const std::string& folder_name = "library");
// As above. Temporary folder, user's folder and library's folder get names that are beyond every
// ANSI code page; the first two are in `parent`.
void UseForeignFolders(const std::string& parent = PrivateFolder());

std::string JoinPath(const std::string& folder, const std::string& name);
bool FileExists(const std::string& path);
// From this byte on; empty if there is no such file.
std::string ReadFile(const std::string& path, std::size_t from = 0);
std::size_t FileSize(const std::string& path);                        // 0 if there is none
void WriteFile(const std::string& path, const std::string& content);  // also creates folders
void RemoveFile(const std::string& path);
// Names in `folder` with this beginning and end, sorted.
std::vector<std::string> FilesIn(const std::string& folder, const std::string& begin,
                                 const std::string& end);

}  // namespace conformance
