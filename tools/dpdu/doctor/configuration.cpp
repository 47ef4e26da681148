#include "doctor/configuration.h"

#include <json-c/json.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>

#include "doctor/access.h"
#include "platform/files.h"
#include "support/config_keys.h"
#include "text/names.h"

namespace dpdu {
namespace {

namespace fs = std::filesystem;

constexpr char kConfigSubject[] = "configuration";

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

bool ReadAll(const std::string& path, std::string* text) {
    std::ifstream file(PathOf(path), std::ios::binary);
    if (!file) return false;
    text->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

const char* JsonOf(const ConfigFile& file) {
    return tarvik::WithoutByteOrderMark(file.text.c_str());
}

// "line 3: unexpected character"; empty if the text is a JSON object.
std::string FaultOf(const char* text) {
    const std::unique_ptr<json_tokener, PutJsonRoot> tokener(json_tokener_new());
    const JsonRoot root(json_tokener_parse_ex(tokener.get(), text, -1));
    const json_tokener_error error = json_tokener_get_error(tokener.get());
    if (error == json_tokener_success) {
        return json_object_is_type(root.get(), json_type_object) ? "" : "it is not in { }";
    }
    const auto lines = std::count(text, text + json_tokener_get_parse_end(tokener.get()), '\n');
    return "line " + std::to_string(lines + 1) + ": " + json_tokener_error_desc(error);
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

std::string KeysThatCountAsOn(json_object* root) {
    std::string list;
    for (const tarvik::BoolKey& key : tarvik::kBoolKeys) {
        if (key.when_missing && !HasKey(root, key.name)) AddWord(&list, key.name);
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

void AddIfAny(Findings* findings, Verdict verdict, const std::string& keys,
              const std::string& meaning, const std::string& advice) {
    if (!keys.empty()) findings->push_back({verdict, kConfigSubject, meaning + keys, advice});
}

void AddKeyFindings(const char* text, Findings* findings) {
    const JsonRoot root(json_tokener_parse(text));
    AddIfAny(findings, Verdict::kWrong, KeysOfWrongType(root.get()),
             "of a wrong type: ", "use the type in parentheses");
    AddIfAny(findings, Verdict::kWrong, KeysThatAreCut(root.get()),
             "too long and cut: ", "shorten them");
    AddIfAny(findings, Verdict::kNote, KeysThatCountAsOn(root.get()),
             "missing, so they count as on: ", "write them with true or false");
    AddIfAny(findings, Verdict::kNote, UnknownKeys(root.get()),
             "unknown: ", "look for misspellings");
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
    if (config.dummyDevice) AddWord(&list, "demo device");
    if (!list.empty()) return {Verdict::kFine, "transports", list};
    return {Verdict::kWrong, "transports", "all are off",
            "set useSerial, useCloud, useBle or dummyDevice to true"};
}

std::string OfBytesRead(std::size_t size) {
    return std::to_string(size) + " of the " + std::to_string(tarvik::kMaxConfigFileSize) +
           " bytes that are read";
}

// The library rewrites the file after creating its key.
void AddSizeAfterKey(const tarvik::Config& config, Findings* findings) {
    if (!config.useCloud || config.devicePrivateKey[0] != '\0') return;
    constexpr std::size_t kKeyDigits = 64;
    const std::size_t size = tarvik::WrittenConfigSize(config) + kKeyDigits;
    if (size <= tarvik::kMaxConfigFileSize) return;
    findings->push_back({Verdict::kWrong, kConfigSubject,
                         "with the key that the library adds it has " + OfBytesRead(size) +
                             ", and would not be read again",
                         "shorten the addresses, or clear unused ones"});
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
    file.is_readable = file.is_there && ReadAll(file.path, &file.text);
    file.is_usable = file.is_readable && file.text.size() <= tarvik::kMaxConfigFileSize &&
                     FaultOf(JsonOf(file)).empty();
    if (file.is_usable) tarvik::ParseConfig(file.text.c_str(), &file.values);
    return file;
}

Findings CheckConfiguration(const ConfigFile& file, const std::string& library_path) {
    const auto wrong = [](const std::string& text, const std::string& advice) -> Findings {
        return {{Verdict::kWrong, kConfigSubject, text, advice}};
    };
    if (file.path.empty()) {
        return wrong("this user has no folder for it", "set HOME or XDG_CONFIG_HOME");
    }
    if (!file.is_there) {
        return wrong(file.path + " is missing, and there is none beside the library",
                     AdviceForMissing(file.path, library_path));
    }
    if (!file.is_readable) {
        return wrong(file.path + " cannot be read", "let this user read and write it");
    }
    if (file.text.size() > tarvik::kMaxConfigFileSize) {
        return wrong(file.path + " has " + OfBytesRead(file.text.size()),
                     "shorten it: omit spaces and unused addresses");
    }
    if (!file.is_usable) {
        return wrong(
            file.path + " is not JSON, so every key counts as missing: " + FaultOf(JsonOf(file)),
            "correct it");
    }
    Findings findings = {
        {Verdict::kFine, kConfigSubject, file.path + ", " + OfBytesRead(file.text.size())}};
    if (!file.copied_to.empty()) {
        findings.push_back(
            {Verdict::kNote, kConfigSubject, "this user has no file of their own yet",
             "'dpdu modules' makes " + file.copied_to + ", a copy; change that one"});
    }
    AddKeyFindings(JsonOf(file), &findings);
    AddSizeAfterKey(file.values, &findings);
    findings.push_back(TransportFinding(file.values));
    return findings;
}

}  // namespace dpdu
