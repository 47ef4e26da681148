#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "console/failure.h"
#include "root/own_entry.h"
#include "root/root_file.h"
#include "text/names.h"

namespace dpdu {
namespace {

// The folder of this project's library, through symbolic links.
std::string FolderOfLibrary() {
    std::error_code error;
    const std::filesystem::path library =
        std::filesystem::canonical(PathOf(DefaultLibraryPath()), error);
    if (error) {
        throw Failure(DefaultLibraryPath() +
                      " is missing; name the library's folder with --folder");
    }
    return TextOf(library.parent_path());
}

std::string AbsoluteFolder(const std::string& folder) {
    if (folder.empty()) return FolderOfLibrary();
    return TextOf(std::filesystem::absolute(PathOf(folder)).lexically_normal());
}

void Print(const root::Change& change, const std::string& done, const std::string& not_needed,
           Output* output) {
    if (output->AsJson()) {
        output->Document({{"name", root::OwnShortName()},
                          {"rootFile", change.path},
                          {"changed", change.is_done}});
        return;
    }
    output->Line(root::OwnShortName() + " " + (change.is_done ? done : not_needed) + " " +
                 change.path);
}

Json DocumentOf(const root::Entry& entry) {
    return {{"name", entry.short_name},
            {"description", entry.description},
            {"supplier", entry.supplier},
            {"library", entry.library_uri},
            {"moduleDescription", entry.module_description_uri},
            {"cableDescription", entry.cable_description_uri}};
}

bool IsRegularFile(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(PathOf(path), ignored);
}

}  // namespace

std::string CommonOptions::LibraryPath() const {
    if (vendor.empty()) return library.empty() ? DefaultLibraryPath() : library;
    const root::Entry entry = root::FindEntry(root_file, vendor);
    const std::string path = root::PathOfUri(entry.library_uri);
    if (!path.empty()) return path;
    throw Failure("the root file has no usable address for '" + vendor + "': '" +
                  entry.library_uri + "'; it must begin with file:///");
}

ExitCode RunLibraries(const CommonOptions& common, Output* output) {
    const std::vector<root::Entry> entries = root::ReadEntries(common.root_file);
    Json list = Json::array();
    std::vector<Row> rows = {{"NAME", "SUPPLIER", "THERE", "LIBRARY"}};
    for (const root::Entry& entry : entries) {
        const std::string path = root::PathOfUri(entry.library_uri);
        const bool is_there = IsRegularFile(path);
        list.push_back({{"name", entry.short_name},
                        {"supplier", entry.supplier},
                        {"description", entry.description},
                        {"library", path},
                        {"isThere", is_there}});
        rows.push_back({entry.short_name, entry.supplier, is_there ? "yes" : "no",
                        path.empty() ? entry.library_uri : path});
    }
    if (output->AsJson()) {
        output->Document({{"libraries", list}});
    } else if (entries.empty()) {
        output->Line("the root file lists no library");
    } else {
        output->Table(rows);
    }
    return ExitCode::kOk;
}

ExitCode RunRootList(const CommonOptions& common, const RootOptions&, Output* output) {
    const std::vector<root::Entry> entries = root::ReadEntries(common.root_file);
    if (output->AsJson()) {
        Json list = Json::array();
        for (const root::Entry& entry : entries)
            list.push_back(DocumentOf(entry));
        output->Document({{"entries", list}});
        return ExitCode::kOk;
    }
    if (entries.empty()) {
        output->Line("the root file lists no library");
        return ExitCode::kOk;
    }
    for (const root::Entry& entry : entries) {
        output->Line(entry.short_name);
        output->Line("  supplier            " + entry.supplier);
        output->Line("  description         " + entry.description);
        output->Line("  library             " + entry.library_uri);
        output->Line("  module description  " + entry.module_description_uri);
        output->Line("  cable description   " + entry.cable_description_uri);
    }
    return ExitCode::kOk;
}

ExitCode RunRootAdd(const CommonOptions& common, const RootOptions& options, Output* output) {
    const std::string folder = AbsoluteFolder(options.folder);
    Print(root::AddOwnEntry(common.root_file, folder), "added to", "is already in", output);
    return ExitCode::kOk;
}

ExitCode RunRootRemove(const CommonOptions& common, const RootOptions&, Output* output) {
    Print(root::RemoveOwnEntry(common.root_file), "removed from", "is not in", output);
    return ExitCode::kOk;
}

}  // namespace dpdu
