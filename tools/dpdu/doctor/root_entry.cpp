#include <algorithm>
#include <filesystem>

#include "console/failure.h"
#include "doctor/surroundings.h"
#include "root/own_entry.h"
#include "root/root_file.h"
#include "text/names.h"

namespace dpdu {
namespace {

// Also true if one of the two cannot be read.
bool MayBeTheSameFile(const std::string& one, const std::string& other) {
    std::error_code error;
    const bool is_same = std::filesystem::equivalent(PathOf(one), PathOf(other), error);
    return is_same || error;
}

Finding EntryFinding(const std::string& file, const root::Entry& entry,
                     const std::string& library_path) {
    const std::string path = root::PathOfUri(entry.library_uri);
    if (path.empty()) {
        return Found(Diagnosis::kRootEntryAddress,
                     {{"name", entry.short_name}, {"file", file}, {"address", entry.library_uri}});
    }
    Diagnosis diagnosis = Diagnosis::kRootFile;
    std::error_code error;
    if (!std::filesystem::is_regular_file(PathOf(path), error)) {
        diagnosis = Diagnosis::kRootEntryGone;
    } else if (!MayBeTheSameFile(path, library_path)) {
        diagnosis = Diagnosis::kRootEntryOther;
    }
    return Found(diagnosis, {{"name", entry.short_name}, {"file", file}, {"path", path}});
}

Finding FileFinding(const std::string& file, const std::string& library_path) {
    std::error_code error;
    if (file.empty() || !std::filesystem::exists(PathOf(file), error)) {
        return Found(Diagnosis::kRootFileMissing,
                     {{"file", file.empty() ? "in its registry" : file}});
    }
    const std::string name = root::OwnShortName();
    std::vector<root::Entry> entries = root::ReadEntries(file);
    std::erase_if(entries, [&name](const root::Entry& entry) { return entry.short_name != name; });
    if (entries.size() == 1) return EntryFinding(file, entries.front(), library_path);
    return Found(entries.empty() ? Diagnosis::kRootEntryMissing : Diagnosis::kRootEntryTwice,
                 {{"file", file}, {"name", name}});
}

}  // namespace

Findings CheckRootEntry(const std::string& root_file, const std::string& library_path) {
    try {
        return {FileFinding(root_file.empty() ? root::MachineRootFile() : root_file, library_path)};
    } catch (const Failure& failure) {
        return {Found(Diagnosis::kRootFileUnreadable, {{"reason", failure.what()}})};
    }
}

}  // namespace dpdu
