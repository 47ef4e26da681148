#include "doctor/configuration.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>

#include "doctor/access.h"
#include "doctor/diagnoses.h"
#include "platform/files.h"
#include "support/config_keys.h"
#include "text/names.h"

namespace dpdu {
namespace {

namespace fs = std::filesystem;

struct PutJsonRoot {
    void operator()(json_object* object) const { json_object_put(object); }
    void operator()(json_tokener* tokener) const { json_tokener_free(tokener); }
};
using JsonRoot = std::unique_ptr<json_object, PutJsonRoot>;

std::string UserPath() {
    char folder[tarvik::kMaxPath];
    if (!tarvik::OsUserDataFolder(folder, sizeof folder)) return "";
    return TextOf(PathOf(folder) / "Tarvik" / "Brennix" / "config.json");
}

// A library given by a bare file name has no folder.
std::string PathBeside(const std::string& library_path) {
    const fs::path folder = PathOf(library_path).parent_path();
    return folder.empty() ? "" : TextOf(folder / "config.json");
}

bool IsFile(const std::string& path) { return !path.empty() && tarvik::OsFileExists(path.c_str()); }

std::string FindPath(const std::string& library_path) {
    const std::string user = UserPath();
    const std::string beside = PathBeside(library_path);
    return IsFile(user) || !IsFile(beside) ? user : beside;
}

// The library creates the file beside itself or, where it may not, in the user's folder, which it
// does not create.
std::string AdviceForMissing(const std::string& user_file, const std::string& library_path) {
    const std::string beside = PathBeside(library_path);
    const std::string user_folder = TextOf(PathOf(user_file).parent_path());
    const std::string make =
        "'dpdu modules' makes one with every transport off; then switch one on";
    if (!beside.empty() && CanCreateFilesIn(TextOf(PathOf(beside).parent_path()))) return make;
    if (CanCreateFilesIn(user_folder)) return make;
    return "create its folder: " + CreateFolderCommand(user_folder) + "; after that " + make;
}

struct CloseStream {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Of a longer file only the beginning: its size is in `size`. False: it cannot be read.
bool ReadBeginning(const std::string& path, std::string* text, std::uintmax_t* size) {
    const std::unique_ptr<std::FILE, CloseStream> file(OpenFile(path, "rb"));
    if (file == nullptr) return false;
    text->resize(tarvik::kMaxConfigFileSize + 1);
    text->resize(std::fread(text->data(), 1, text->size(), file.get()));
    if (std::ferror(file.get()) != 0) return false;
    std::error_code error;
    *size = fs::file_size(PathOf(path), error);
    if (error) *size = text->size();
    return true;
}

const char* JsonOf(const ConfigFile& file) {
    return tarvik::WithoutByteOrderMark(file.text.c_str());
}

// "line 3, column 14"; columns count bytes.
std::string PositionOf(std::string_view text, std::size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t line_begin = before.rfind('\n') + 1;  // 0 if there is none
    return "line " + std::to_string(lines + 1) + ", column " +
           std::to_string(before.size() - line_begin + 1);
}

// "line 3, column 14: unexpected character"; empty if the text is a JSON object.
std::string FaultOf(const char* text) {
    const std::unique_ptr<json_tokener, PutJsonRoot> tokener(json_tokener_new());
    const JsonRoot root(json_tokener_parse_ex(tokener.get(), text, -1));
    const json_tokener_error error = json_tokener_get_error(tokener.get());
    if (error == json_tokener_success) {
        return json_object_is_type(root.get(), json_type_object) ? "" : "it is not in { }";
    }
    return PositionOf(text, json_tokener_get_parse_end(tokener.get())) + ": " +
           json_tokener_error_desc(error);
}

// ---------------------------------------------------------------- keys of the file

template <typename Table>
bool IsIn(const Table& table, std::string_view name) {
    return std::any_of(table.begin(), table.end(),
                       [name](const auto& key) { return name == key.name; });
}

bool HasKey(json_object* root, const char* name) {
    json_object* value = nullptr;
    return json_object_object_get_ex(root, name, &value) && value != nullptr;
}

void AddWord(std::string* list, const std::string& word) {
    *list += (list->empty() ? "" : ", ") + word;
}

constexpr char kCertificateKey[] = "disableCertValidation";

// Without the one for certificates, which has a finding of its own.
std::string KeysThatCountAsOn(json_object* root) {
    std::string list;
    for (const tarvik::BoolKey& key : tarvik::kBoolKeys) {
        const bool is_other = std::string_view(key.name) != kCertificateKey;
        if (is_other && key.when_missing && !HasKey(root, key.name)) AddWord(&list, key.name);
    }
    return list;
}

std::string UnknownKeys(json_object* root) {
    std::string list;
    json_object_object_foreach(root, name, value) {
        static_cast<void>(value);
        const bool known = IsIn(tarvik::kBoolKeys, name) || IsIn(tarvik::kTextKeys, name);
        if (!known) AddWord(&list, name);
    }
    return list;
}

// A text instead of true or false counts as true, even "false".
std::string KeysOfWrongType(json_object* root) {
    std::string list;
    json_object_object_foreach(root, name, value) {
        if (value == nullptr) continue;
        const json_type type = json_object_get_type(value);
        if (IsIn(tarvik::kBoolKeys, name) && type != json_type_boolean) {
            AddWord(&list, std::string(name) + " (true or false)");
        }
        if (IsIn(tarvik::kTextKeys, name) && type != json_type_string) {
            AddWord(&list, std::string(name) + " (a text)");
        }
    }
    return list;
}

std::string KeysThatAreCut(json_object* root) {
    std::string list;
    for (const tarvik::TextKey& key : tarvik::kTextKeys) {
        json_object* value = nullptr;
        if (!json_object_object_get_ex(root, key.name, &value) || value == nullptr) continue;
        if (std::string_view(json_object_get_string(value)).size() >= key.capacity) {
            AddWord(&list, key.name);
        }
    }
    return list;
}

// True also for a missing key that counts as on.
bool IsOn(json_object* root, const char* name) {
    json_object* value = nullptr;
    if (json_object_object_get_ex(root, name, &value) && value != nullptr) {
        return json_object_get_boolean(value) != 0;
    }
    for (const tarvik::BoolKey& key : tarvik::kBoolKeys) {
        if (std::string_view(name) == key.name) return key.when_missing;
    }
    return false;
}

void AddIfAny(Findings* findings, Diagnosis diagnosis, const std::string& keys) {
    if (!keys.empty()) findings->push_back(Found(diagnosis, {{"keys", keys}}));
}

// Switches that have no effect: the library then does something else than the file says.
void AddIdleSwitches(json_object* root, const tarvik::Config& config, Findings* findings) {
    if (!config.useCloud) return;
    if (IsOn(root, "useWebsocket") && !config.useWebsocket) {
        findings->push_back(Found(Diagnosis::kConfigNoWebSocket));
    }
    if (!IsOn(root, "useProxy") || (config.useProxy && config.useWebsocket)) return;
    findings->push_back(Found(Diagnosis::kConfigNoProxy,
                              {{"reason", config.useProxy ? "but only WebSockets go through a proxy"
                                                          : "but proxyAddress is empty"}}));
}

void AddKeyFindings(const ConfigFile& file, Findings* findings) {
    const JsonRoot root(json_tokener_parse(JsonOf(file)));
    AddIfAny(findings, Diagnosis::kConfigWrongType, KeysOfWrongType(root.get()));
    AddIfAny(findings, Diagnosis::kConfigCut, KeysThatAreCut(root.get()));
    AddIfAny(findings, Diagnosis::kConfigKeysMissing, KeysThatCountAsOn(root.get()));
    if (!HasKey(root.get(), kCertificateKey)) {
        findings->push_back(Found(Diagnosis::kConfigCertificateKeyMissing,
                                  {{"path", file.copied_to.empty() ? file.path : file.copied_to}}));
    }
    AddIfAny(findings, Diagnosis::kConfigKeysUnknown, UnknownKeys(root.get()));
    AddIdleSwitches(root.get(), file.values, findings);
}

// ---------------------------------------------------------------- what it says

std::string CloudText(const tarvik::Config& config) {
    std::string text = "relay over ";
    text += config.useWebsocket ? "a WebSocket" : "TCP";
    if (config.useWebsocket && config.useProxy) text += " and a proxy";
    return text;
}

Finding TransportFinding(const tarvik::Config& config) {
    std::string list;
    if (config.useSerial) AddWord(&list, "serial port");
    if (config.useCloud) AddWord(&list, CloudText(config));
    if (config.useBle) AddWord(&list, "Bluetooth LE");
    if (list.empty() && config.dummyDevice) return Found(Diagnosis::kTransportsDemo);
    if (config.dummyDevice) AddWord(&list, "demo device");
    if (list.empty()) return Found(Diagnosis::kTransportsOff);
    return Found(Diagnosis::kTransports, {{"list", list}});
}

// With the path and the number of bytes.
Finding SizeFinding(Diagnosis diagnosis, const std::string& path, std::uintmax_t size) {
    return Found(diagnosis, {{"path", path},
                             {"size", std::to_string(size)},
                             {"limit", std::to_string(tarvik::kMaxConfigFileSize)}});
}

// The library rewrites the file after creating its key.
void AddSizeAfterKey(const ConfigFile& file, Findings* findings) {
    if (!file.values.useCloud || file.values.devicePrivateKey[0] != '\0') return;
    constexpr std::size_t kKeyDigits = 64;
    const std::size_t size = tarvik::WrittenConfigSize(file.values) + kKeyDigits;
    if (size <= tarvik::kMaxConfigFileSize) return;
    findings->push_back(SizeFinding(Diagnosis::kConfigGrows, file.path, size));
}

bool IsUtf16(const std::string& text) {
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF");
}

// What keeps the library from using the file; nothing: it is usable.
Findings ConfigFault(const ConfigFile& file, const std::string& library_path) {
    if (file.path.empty()) return {Found(Diagnosis::kConfigNoFolder)};
    if (!file.is_there) {
        return {
            Found(Diagnosis::kConfigMissing,
                  {{"path", file.path}, {"command", AdviceForMissing(file.path, library_path)}})};
    }
    if (!file.is_readable) return {Found(Diagnosis::kConfigUnreadable, {{"path", file.path}})};
    if (file.size > tarvik::kMaxConfigFileSize) {
        return {SizeFinding(Diagnosis::kConfigTooLong, file.path, file.size)};
    }
    if (IsUtf16(file.text)) return {Found(Diagnosis::kConfigUtf16, {{"path", file.path}})};
    if (file.is_usable) return {};
    return {
        Found(Diagnosis::kConfigNotJson, {{"path", file.path}, {"fault", FaultOf(JsonOf(file))}})};
}

// What the library can read.
Findings ConfigContents(const ConfigFile& file) {
    Findings findings = {SizeFinding(Diagnosis::kConfig, file.path, file.size)};
    if (JsonOf(file) != file.text.c_str()) {
        findings.push_back(Found(Diagnosis::kConfigByteOrderMark));
    }
    if (!file.copied_to.empty()) {
        findings.push_back(
            Found(Diagnosis::kConfigTemplate, {{"path", file.path}, {"copy", file.copied_to}}));
    }
    AddKeyFindings(file, &findings);
    AddSizeAfterKey(file, &findings);
    findings.push_back(TransportFinding(file.values));
    return findings;
}

}  // namespace

ConfigFile ReadConfigFile(const std::string& library_path) {
    ConfigFile file;
    file.path = FindPath(library_path);
    file.is_there = IsFile(file.path);
    const std::string user = UserPath();
    if (file.is_there && file.path != user && !tarvik::OsFileWritable(file.path.c_str())) {
        file.copied_to = user;
    }
    file.is_readable = file.is_there && ReadBeginning(file.path, &file.text, &file.size);
    file.is_usable = file.is_readable && file.size <= tarvik::kMaxConfigFileSize &&
                     FaultOf(JsonOf(file)).empty();
    if (file.is_usable) tarvik::ParseConfig(file.text.c_str(), &file.values);
    return file;
}

Findings CheckConfiguration(const ConfigFile& file, const std::string& library_path) {
    const std::string user = UserPath();
    std::error_code error;
    const bool is_folder = !user.empty() && fs::is_directory(PathOf(user), error);
    Findings findings;
    if (is_folder) findings.push_back(Found(Diagnosis::kConfigFolder, {{"path", user}}));
    if (is_folder && !file.is_there) return findings;
    const Findings faults = ConfigFault(file, library_path);
    const Findings more = faults.empty() ? ConfigContents(file) : faults;
    findings.insert(findings.end(), more.begin(), more.end());
    return findings;
}

}  // namespace dpdu
