#include "conformance/framework/surroundings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "conformance/framework/library.h"
#include "conformance/framework/system.h"
#include "path_text.h"

namespace conformance {
namespace {

namespace fs = std::filesystem;

// All of them outlive DeletePrivateFolder, which runs at the end of the process.
std::string private_folder;
std::string temp_folder;
std::string private_user_folder;
std::string library_path;
std::uint32_t owner = 0;  // of the folder: a forked process ends too

// A library that is still constructed has running threads and must stay loaded.
bool MayUnload() {
    return LoadedLibraryHandle() != nullptr &&
           Pdu().PDUDestroyItem(nullptr) == PDU_ERR_PDUAPI_NOT_CONSTRUCTED;
}

void DeletePrivateFolder() {
    if (ProcessId() != owner) return;
    if (MayUnload()) PrepareDeletion(LoadedLibraryHandle());
    std::error_code ignored;  // best effort
    fs::remove_all(PathOf(PrivateFolder()), ignored);
}

std::string MakePrivateFolder() {
    const fs::path base = PathOf(SystemTempFolder());
    for (int attempt = 0;; ++attempt) {
        const fs::path folder = base / ("dpdu_conformance_" + std::to_string(ProcessId()) + "_" +
                                        std::to_string(attempt));
        if (!fs::create_directory(folder)) continue;  // left by an earlier process with this number
        fs::create_directory(folder / "temp");
        fs::create_directory(folder / "user");
        return TextOf(folder);
    }
}

}  // namespace

const std::string& PrivateFolder() {
    // Never destroyed: it is needed at the end of the process to delete the folder.
    static const std::string& folder = *new std::string([] {
        std::string made = MakePrivateFolder();
        temp_folder = JoinPath(made, "temp");
        UseTempFolder(temp_folder);
        private_user_folder = JoinPath(made, "user");
        UseUserFolder(private_user_folder);
        owner = ProcessId();
        std::atexit(DeletePrivateFolder);
        return made;
    }());
    return folder;
}

std::string TempFolder() {
    PrivateFolder();
    return temp_folder;
}

std::string UserFolder() {
    PrivateFolder();
    return private_user_folder;
}

void MoveTempFolder(const std::string& folder) {
    PrivateFolder();
    temp_folder = folder;
    UseTempFolder(folder);
}

void UseForeignFolders(const std::string& parent) {
    const std::string beginning = JoinPath(parent, kForeignName);
    for (const char* name : {" temp", " user"})
        fs::create_directories(PathOf(beginning + name));
    MoveTempFolder(beginning + " temp");
    private_user_folder = beginning + " user";
    UseUserFolder(private_user_folder);
    UseLibraryCopy(kForeignName);
}

std::string UserConfigPath() {
    return JoinPath(JoinPath(JoinPath(UserFolder(), "Tarvik"), "Brennix"), "config.json");
}

std::string LibraryPath() {
    if (!library_path.empty()) return library_path;
    const char* path = std::getenv("TARVIK_DPDU_LIBRARY");
    return path == nullptr ? "" : path;
}

std::string LibraryConfigPath() {
    return TextOf(PathOf(LibraryPath()).parent_path() / "config.json");
}

void UseLibraryCopy(const std::string& folder_name) {
    const std::string folder = JoinPath(PrivateFolder(), folder_name);
    fs::create_directory(PathOf(folder));
    const std::string copy = JoinPath(folder, kLibraryFileName);
    fs::copy_file(PathOf(LibraryPath()), PathOf(copy), fs::copy_options::overwrite_existing);
    library_path = copy;
}

std::string JoinPath(const std::string& folder, const std::string& name) {
    return folder + kPathSeparator + name;
}

bool FileExists(const std::string& path) {
    std::error_code ignored;
    return fs::is_regular_file(PathOf(path), ignored);
}

std::string ReadFile(const std::string& path, std::size_t from) {
    std::ifstream file(PathOf(path), std::ios::binary);
    std::string content(std::max(FileSize(path), from) - from, '\0');
    file.seekg(static_cast<std::streamoff>(from));
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(file.gcount()));
    return content;
}

std::size_t FileSize(const std::string& path) {
    std::ifstream file(PathOf(path), std::ios::binary | std::ios::ate);
    return file ? static_cast<std::size_t>(file.tellg()) : 0;
}

void WriteFile(const std::string& path, const std::string& content) {
    fs::create_directories(PathOf(path).parent_path());
    std::ofstream file(PathOf(path), std::ios::binary | std::ios::trunc);
    file << content;
}

void RemoveFile(const std::string& path) {
    std::error_code ignored;
    fs::remove(PathOf(path), ignored);
}

std::vector<std::string> FilesIn(const std::string& folder, const std::string& begin,
                                 const std::string& end) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(PathOf(folder), ignored)) {
        const std::string name = TextOf(entry.path().filename());
        if (name.starts_with(begin) && name.ends_with(end)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace conformance
