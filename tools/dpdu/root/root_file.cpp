#include "root/root_file.h"

#include <filesystem>
#include <functional>

#include "console/failure.h"
#include "root/own_entry.h"
#include "root/root_edit.h"
#include "root/root_store.h"
#include "text/names.h"

namespace dpdu::root {
namespace {

// What `read` makes of the text. Names the file in the line of a refusal.
template <typename Read>
auto Parsed(const std::string& path, const std::string& advice, Read read) {
    try {
        return read();
    } catch (const xml::ParseError& error) {
        throw Failure(path + ", " + error.what() + "; " + advice);
    }
}

// The file to change, in the machine's registry if it is the machine's.
std::string FileToChange(const std::string& file) {
    if (!file.empty()) return FinalPath(file);
    const std::string registered = RegisteredRootFile();
    return FinalPath(registered.empty() ? UsualRootFile() : registered);
}

using Text = std::optional<std::string>;  // empty: there is no file

// Writes what `edit` makes of the file's text. False: that is the same. Without a change nobody
// needs rights to the file; with one, the text is read again when no other installer writes any
// more.
bool ChangeFile(const std::string& path, const std::function<Text(const Text&)>& edit) {
    const auto edited = [&](const Text& text) {
        return Parsed(path, "correct it; nothing was changed", [&] { return edit(text); });
    };
    if (const Text text = ReadWholeFile(path); edited(text) == text) return false;
    const RootFileLock lock(path);
    const Text old_text = ReadWholeFile(path);
    const Text text = edited(old_text);
    if (text == old_text) return false;
    RequireWritable(path);
    if (text) {
        ReplaceWholeFile(path, old_text, *text);
    } else {
        RemoveWholeFile(path, *old_text);
    }
    return true;
}

void CreateFolderOf(const std::string& path) {
    const std::filesystem::path folder = PathOf(path).parent_path();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!error) return;
    throw Failure(TextOf(folder) + " cannot be created (" + error.message() + ")" +
                  (error == std::errc::permission_denied ? "; run this as administrator" : "") +
                  "; nothing was changed");
}

void RequireFiles(const std::string& folder) {
    for (const char* name : {kLibraryFile, kModuleDescriptionFile, kCableDescriptionFile}) {
        const std::string path = folder + "/" + name;
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(PathOf(path), ignored)) {
            throw Failure(path +
                          " is missing; name the folder with the library and its description "
                          "files; nothing was changed");
        }
    }
}

}  // namespace

std::string MachineRootFile() { return RegisteredRootFile(); }

std::vector<Entry> ReadEntries(const std::string& file) {
    const std::string path = file.empty() ? MachineRootFile() : file;
    if (path.empty()) return {};
    const std::optional<std::string> text = ReadWholeFile(path);
    if (!text) return {};
    return Parsed(path, "correct it", [&text] { return EntriesOf(xml::Parse(*text)); });
}

Entry FindEntry(const std::string& file, const std::string& short_name) {
    std::string names;
    std::vector<Entry> found;
    for (Entry& entry : ReadEntries(file)) {
        names += (names.empty() ? "" : ", ") + entry.short_name;
        if (entry.short_name == short_name) found.push_back(std::move(entry));
    }
    if (found.size() == 1) return found.front();
    if (found.size() > 1) {
        throw Failure("'" + short_name + "' is there " + std::to_string(found.size()) +
                      " times in the root file; see dpdu root list");
    }
    throw Failure("no library is installed as '" + short_name + "'; " +
                  (names.empty() ? "the root file lists none" : "there are: " + names));
}

Change AddOwnEntry(const std::string& file, const std::string& folder) {
    const Entry entry = OwnEntry(folder);
    RequireFiles(folder);
    const std::string path = FileToChange(file);
    if (file.empty()) CreateFolderOf(path);
    const bool is_changed = ChangeFile(path, [&entry](const std::optional<std::string>& old_text) {
        return WithEntry(old_text.value_or(EmptyRootFile()), entry);
    });
    if (file.empty()) RegisterRootFile(path);
    return {path, is_changed};
}

Change RemoveOwnEntry(const std::string& file) {
    const std::string path = FileToChange(file);
    const bool is_changed = ChangeFile(
        path, [](const std::optional<std::string>& old_text) -> std::optional<std::string> {
            if (!old_text) return std::nullopt;
            std::string text = WithoutEntry(*old_text, OwnShortName());
            if (text != *old_text && text == EmptyRootFile()) return std::nullopt;
            return text;
        });
    if (is_changed && file.empty() && !ReadWholeFile(path)) UnregisterRootFile(path);
    return {path, is_changed};
}

}  // namespace dpdu::root
