#include "support/config.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/files.h"
#include "support/config_keys.h"
#include "support/log.h"
#include "support/memory.h"

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

    void Reset(json_object* object) {
        json_object_put(object_);
        object_ = object;
    }
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

// --- text of the file ---

bool AddKey(json_object* root, const char* name, json_object* value) {
    if (value != nullptr && json_object_object_add(root, name, value) == 0) return true;
    json_object_put(value);
    return false;
}

bool AddKeys(json_object* root, Config* record) {
    for (const BoolKey& key : kBoolKeys) {
        const bool value = record->*key.field;
        if (!AddKey(root, key.name, json_object_new_boolean(value ? 1 : 0))) return false;
    }
    for (const TextKey& key : kTextKeys) {
        if (!AddKey(root, key.name, json_object_new_string(key.field(record)))) return false;
    }
    return true;
}

Tracked<char> WithPlatformLineEnds(const char* text) {
    const auto lines = static_cast<std::size_t>(std::count(text, text + std::strlen(text), '\n'));
    Tracked<char> copy(
        static_cast<char*>(AllocateMem(std::strlen(text) + lines * std::strlen(kTextLineEnd) + 1)));
    if (copy == nullptr) return nullptr;
    char* end = copy.get();
    for (; *text != '\0'; ++text) {
        if (*text != '\n') {
            *end++ = *text;
            continue;
        }
        for (const char* byte = kTextLineEnd; *byte != '\0'; ++byte)
            *end++ = *byte;
    }
    return copy;
}

// The parsed text; its result may be null. False: memory is out.
bool ParseText(const char* text, JsonObject* root) {
    json_tokener* tokener = json_tokener_new();
    if (tokener == nullptr) return false;
    root->Reset(json_tokener_parse_ex(tokener, text, -1));
    const json_tokener_error error = json_tokener_get_error(tokener);
    json_tokener_free(tokener);
    return error != json_tokener_error_memory;
}

// Null if the key is missing, the value is null, or there is no object.
json_object* Lookup(json_object* root, const char* name) {
    json_object* value = nullptr;
    json_object_object_get_ex(root, name, &value);
    return value;
}

// Text that does not fit the field is cut. False: memory is out.
bool CopyText(json_object* value, char* field, std::size_t capacity) {
    const char* text = value != nullptr ? json_object_get_string(value) : "";
    if (text == nullptr) return false;
    FormatText(field, capacity, "%s", text);
    return true;
}

// The values as they are in the text. False: memory is out.
bool ReadKeys(const char* text, Config* record) {
    JsonObject root(nullptr);
    if (!ParseText(text, &root)) return false;
    for (const BoolKey& key : kBoolKeys) {
        json_object* value = Lookup(root.Get(), key.name);
        record->*key.field =
            value != nullptr ? json_object_get_boolean(value) != 0 : key.when_missing;
    }
    for (const TextKey& key : kTextKeys) {
        if (!CopyText(Lookup(root.Get(), key.name), key.field(record), key.capacity)) return false;
    }
    return true;
}

bool HaveSameValues(Config* a, Config* b) {
    for (const BoolKey& key : kBoolKeys) {
        if (a->*key.field != b->*key.field) return false;
    }
    for (const TextKey& key : kTextKeys) {
        if (std::strcmp(key.field(a), key.field(b)) != 0) return false;
    }
    return true;
}

// Null: memory is out. json-c does not report that its output could not grow, so the text is read
// back.
Tracked<char> FileTextOf(Config* record) {
    JsonObject root(json_object_new_object());
    if (root.Get() == nullptr || !AddKeys(root.Get(), record)) return nullptr;
    const char* text = json_object_to_json_string_ext(
        root.Get(), JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE);
    Config copy{};
    if (text == nullptr || !ReadKeys(text, &copy) || !HaveSameValues(record, &copy)) return nullptr;
    return WithPlatformLineEnds(text);
}

// --- writing ---

enum class SaveResult : unsigned char { kSaved, kNotOpened, kNotWritten };

SaveResult WriteNewFile(const char* path, const char* text) {
    OsRemoveFile(path);  // left by a process that was ended
    OsAppendFile* file = nullptr;
    if (OsAppendFileCreate(path, &file) != CreateFileResult::kCreated)
        return SaveResult::kNotOpened;
    const bool written =
        OsAppendFileWrite(file, text, std::strlen(text)) && OsAppendFileFlush(file);
    OsAppendFileClose(file);
    return written ? SaveResult::kSaved : SaveResult::kNotWritten;
}

// The file has the old contents or the new ones at any time. A new file is for the user alone, as
// it may hold the device's key.
SaveResult SaveFile(const char* path, const char* text) {
    if (OsFileExists(path) && !OsFileWritable(path)) return SaveResult::kNotOpened;
    char target[kMaxPath];
    char beside[kMaxPath + sizeof ".new"];
    if (!OsFinalPath(path, target, sizeof target)) return SaveResult::kNotOpened;
    FormatText(beside, sizeof beside, "%s.new", target);
    SaveResult result = WriteNewFile(beside, text);
    if (result == SaveResult::kSaved && !OsReplaceFile(beside, target)) {
        result = SaveResult::kNotOpened;
    }
    if (result != SaveResult::kSaved) OsRemoveFile(beside);
    return result;
}

}  // namespace

std::size_t WrittenConfigSize(const Config& record) {
    Config copy = record;
    const Tracked<char> text = FileTextOf(&copy);
    return text != nullptr ? std::strlen(text.get()) : 0;
}

bool CreateDefaultConfig(const char* path) {
    Config fresh{};
    for (const BoolKey& key : kBoolKeys)
        fresh.*key.field = key.in_new_file;
    const Tracked<char> text = FileTextOf(&fresh);
    if (text == nullptr) return false;
    const SaveResult result = SaveFile(path, text.get());
    if (result == SaveResult::kNotOpened) ConsolePrint("Failed to create config file: %s\n", path);
    return result == SaveResult::kSaved;
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
    Config copy = *record;
    const Tracked<char> text = FileTextOf(&copy);
    if (text == nullptr) return false;
    const SaveResult result = SaveFile(path, text.get());
    if (result == SaveResult::kNotOpened) {
        ConsolePrint("Failed to open config file for writing: %s\n", path);
    }
    if (result != SaveResult::kSaved) return false;
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
    const bool complete = std::ferror(file) == 0;
    std::fclose(file);
    return complete;
}

}  // namespace

const char* WithoutByteOrderMark(const char* text) {
    static constexpr char kMark[] = "\xEF\xBB\xBF";
    constexpr std::size_t kLength = sizeof kMark - 1;
    return std::strncmp(text, kMark, kLength) == 0 ? text + kLength : text;
}

bool ParseConfig(const char* text, Config* record) {
    Config read{};
    if (!ReadKeys(WithoutByteOrderMark(text), &read)) return false;
    read.useProxy = read.useProxy && read.proxyAddress[0] != '\0';
    read.useWebsocket = read.useWebsocket && read.websocketAddress[0] != '\0';
    *record = read;
    return true;
}

bool LoadConfig(Config* record) {
    char text[kMaxConfigFileSize + 1] = {};
    if (!ReadConfigText(text)) return false;
    return ParseConfig(text, record);
}

}  // namespace tarvik
