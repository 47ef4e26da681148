#pragma once

// The folders in which this process's library keeps its configuration, log and trace: private ones,
// so that programs running beside each other do not meet.

#include <cstddef>
#include <string>
#include <vector>

namespace conformance {

// Ends without a separator; made at the first call and deleted when the process ends.
const std::string& PrivateFolder();

std::string TempFolder();  // ends without a separator, too
std::string UserFolder();
// For tests in a fresh process, before the library is loaded: another folder, which need not exist.
void MoveTempFolder(const std::string& folder);

std::string UserConfigPath();
std::string LibraryPath();        // of the library under test
std::string LibraryConfigPath();  // beside it
// For tests in a fresh process, before the library is loaded: loads a copy that lies in a private
// folder, so that a test may put a configuration beside it.
void UseLibraryCopy();

std::string JoinPath(const std::string& folder, const std::string& name);
bool FileExists(const std::string& path);
// From this byte on; empty when there is no such file.
std::string ReadFile(const std::string& path, std::size_t from = 0);
std::size_t FileSize(const std::string& path);                        // 0 when there is none
void WriteFile(const std::string& path, const std::string& content);  // makes folders, too
void RemoveFile(const std::string& path);
// Names in `folder` that begin and end like this, sorted.
std::vector<std::string> FilesIn(const std::string& folder, const std::string& begin,
                                 const std::string& end);

}  // namespace conformance
