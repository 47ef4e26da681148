#include "support/config.h"

#include <json-c/json.h>

#include <cstdio>
#include <cstring>

#include "platform/files.h"
#include "support/config_keys.h"
#include "support/log.h"

namespace tarvik {
namespace {

constexpr std::size_t kCopyBlock = 4096;

}  // namespace

Config config{};

namespace {

class Stream {
public:
    Stream(const char* path, const char* mode) : file_(OsOpenStream(path, mode)) {}
    ~Stream() {
        if (file_ != nullptr) std::fclose(file_);
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    bool IsOpen() const { return file_ != nullptr; }
    std::FILE* Get() { return file_; }

private:
    std::FILE* file_;
};

class JsonObject {
public:
    explicit JsonObject(json_object* object) : object_(object) {}
    ~JsonObject() { json_object_put(object_); }
    JsonObject(const JsonObject&) = delete;
    JsonObject& operator=(const JsonObject&) = delete;

    json_object* Get() { return object_; }

private:
    json_object* object_;
};

// --- where the file is ---

bool UserConfigPath(char (&path)[kMaxPath]) {
    char folder[kMaxPath];
    if (!OsUserDataFolder(folder, sizeof folder)) return false;
    const char separator = kPathSeparator;
    return FormatText(path, sizeof path, "%s%cTarvik%cBrennix%cconfig.json", folder, separator,
                      separator, separator) >= 0;
}

bool LibraryConfigPath(char (&path)[kMaxPath]) {
    char folder[kMaxPath];
    if (!OsLibraryFolder(folder, sizeof folder)) return false;
    return FormatText(path, sizeof path, "%s%cconfig.json", folder, kPathSeparator) >= 0;
}

// Removes the last element of the path; false if there is none.
bool CutToParent(char* path) {
    char* separator = std::strrchr(path, kPathSeparator);
    if (separator == nullptr) return false;
    *separator = '\0';
    return true;
}

bool CreateFolderWithParents(const char* folder) {
    if (OsCreateFolder(folder)) return true;
    char parent[kMaxPath];
    return FormatText(parent, sizeof parent, "%s", folder) >= 0 && CutToParent(parent) &&
           CreateFolderWithParents(parent) && OsCreateFolder(folder);
}

bool CreateFolderOf(const char* file) {
    char folder[kMaxPath];
    return FormatText(folder, sizeof folder, "%s", file) >= 0 && CutToParent(folder) &&
           CreateFolderWithParents(folder);
}

// A failure leaves the partial copy where it is.
bool CopyContents(std::FILE* from, std::FILE* to) {
    char block[kCopyBlock];
    while (const std::size_t size = std::fread(block, 1, sizeof block, from)) {
        if (std::fwrite(block, 1, size, to) != size) return false;
    }
    return std::ferror(from) == 0 && std::fflush(to) == 0;
}

// True: use the user path from now on.
bool MigrateToUserPath(const char* library_path, const char* user_path) {
    if (OsFileExists(user_path)) return true;
    Stream from(library_path, "rb");
    if (!from.IsOpen() || !CreateFolderOf(user_path)) return false;
    Stream to(user_path, "wb");
    return to.IsOpen() && CopyContents(from.Get(), to.Get());
}

}  // namespace

bool ResolveConfigPath(char (&path)[kMaxPath]) {
    char user_path[kMaxPath];
    const bool user_known = UserConfigPath(user_path);
    char library_path[kMaxPath];
    const char* chosen = library_path;
    if (user_known && OsFileExists(user_path)) {
        chosen = user_path;
    } else {
        if (!LibraryConfigPath(library_path)) return false;
        const bool read_only = OsFileExists(library_path) && !OsFileWritable(library_path);
        if (read_only && user_known && MigrateToUserPath(library_path, user_path)) {
            chosen = user_path;
        }
    }
    std::memcpy(path, chosen, std::strlen(chosen) + 1);
    return true;
}

namespace {

// --- writing ---

// The text lives as long as the object.
const char* TextOf(JsonObject* root, Config* record) {
    for (const BoolKey& key : kBoolKeys) {
        json_object_object_add(root->Get(), key.name,
                               json_object_new_boolean(record->*key.field ? 1 : 0));
    }
    for (const TextKey& key : kTextKeys) {
        json_object_object_add(root->Get(), key.name, json_object_new_string(key.field(record)));
    }
    return json_object_to_json_string_ext(root->Get(),
                                          JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE);
}

bool WriteRecord(std::FILE* file, Config* record) {
    JsonObject root(json_object_new_object());
    const char* text = TextOf(&root, record);
    return text != nullptr && std::fputs(text, file) >= 0 && std::fflush(file) == 0;
}

}  // namespace

std::size_t WrittenConfigSize(const Config& record) {
    JsonObject root(json_object_new_object());
    Config copy = record;
    const char* text = TextOf(&root, &copy);
    return text != nullptr ? std::strlen(text) : 0;
}

bool CreateDefaultConfig(const char* path) {
    Stream file(path, "w");
    if (!file.IsOpen()) {
        ConsolePrint("Failed to create config file: %s\n", path);
        return false;
    }
    Config fresh{};
    for (const BoolKey& key : kBoolKeys)
        fresh.*key.field = key.in_new_file;
    return WriteRecord(file.Get(), &fresh);
}

bool WriteConfig(const Config* record) {
    if (record == nullptr) {
        ConsolePrint("WriteConfig: NULL config pointer\n");
        return false;
    }
    char path[kMaxPath];
    if (!ResolveConfigPath(path)) {
        ConsolePrint("Failed to get config file path\n");
        return false;
    }
    CreateFolderOf(path);
    Stream file(path, "w");
    Config copy = *record;
    if (!file.IsOpen()) {
        ConsolePrint("Failed to open config file for writing: %s\n", path);
        return false;
    }
    if (!WriteRecord(file.Get(), &copy)) return false;
    ConsolePrint("Config file written successfully: %s\n", path);
    return true;
}

namespace {

// --- reading ---

// Does not replace a file that exists but cannot be opened: it may hold the device's key. `path` is
// set to the new file.
bool CreateMissingConfig(char (&path)[kMaxPath]) {
    if (OsFileExists(path)) return false;
    ConsolePrint("Creating default config file\n");
    if (CreateDefaultConfig(path)) return true;
    return UserConfigPath(path) && !OsFileExists(path) && CreateDefaultConfig(path);
}

// The first bytes of the file, with a NUL at the end.
bool ReadConfigText(char (&text)[kMaxConfigFileSize + 1]) {
    char path[kMaxPath];
    if (!ResolveConfigPath(path)) {
        ConsolePrint("Failed to get config file path\n");
        return false;
    }
    std::FILE* file = OsOpenStream(path, "rb");
    if (file == nullptr) {
        if (!CreateMissingConfig(path)) return false;
        file = OsOpenStream(path, "rb");
        if (file == nullptr) {
            ConsolePrint("Failed to open newly created config file: %s\n", path);
            return false;
        }
    }
    ConsolePrint("Opened config file: %s\n", path);
    text[std::fread(text, 1, kMaxConfigFileSize, file)] = '\0';
    std::fclose(file);
    return true;
}

// Null if the key is missing, the value is null, or there is no object.
json_object* Lookup(json_object* root, const char* name) {
    json_object* value = nullptr;
    json_object_object_get_ex(root, name, &value);
    return value;
}

// Text that does not fit the field is cut.
void CopyText(json_object* value, char* field, std::size_t capacity) {
    const char* text = value != nullptr ? json_object_get_string(value) : nullptr;
    FormatText(field, capacity, "%s", text != nullptr ? text : "");
}

}  // namespace

void ParseConfig(const char* text, Config* record) {
    JsonObject root(json_tokener_parse(text));
    for (const BoolKey& key : kBoolKeys) {
        json_object* value = Lookup(root.Get(), key.name);
        record->*key.field =
            value != nullptr ? json_object_get_boolean(value) != 0 : key.when_missing;
    }
    for (const TextKey& key : kTextKeys) {
        CopyText(Lookup(root.Get(), key.name), key.field(record), key.capacity);
    }
    record->useProxy = record->useProxy && record->proxyAddress[0] != '\0';
    record->useWebsocket = record->useWebsocket && record->websocketAddress[0] != '\0';
}

bool LoadConfig(Config* record) {
    char text[kMaxConfigFileSize + 1] = {};
    if (!ReadConfigText(text)) return false;
    ParseConfig(text, record);
    return true;
}

}  // namespace tarvik
