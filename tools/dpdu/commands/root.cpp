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

}  // namespace

bool RunRootList(const RootOptions& options, Output* output) {
    const std::vector<root::Entry> entries = root::ReadEntries(options.root_file);
    if (output->AsJson()) {
        Json list = Json::array();
        for (const root::Entry& entry : entries)
            list.push_back(DocumentOf(entry));
        output->Document({{"entries", list}});
        return true;
    }
    if (entries.empty()) {
        output->Line("the root file lists no library");
        return true;
    }
    for (const root::Entry& entry : entries) {
        output->Line(entry.short_name);
        output->Line("  supplier            " + entry.supplier);
        output->Line("  description         " + entry.description);
        output->Line("  library             " + entry.library_uri);
        output->Line("  module description  " + entry.module_description_uri);
        output->Line("  cable description   " + entry.cable_description_uri);
    }
    return true;
}

bool RunRootAdd(const RootOptions& options, Output* output) {
    const std::string folder = AbsoluteFolder(options.folder);
    Print(root::AddOwnEntry(options.root_file, folder), "added to", "is already in", output);
    return true;
}

bool RunRootRemove(const RootOptions& options, Output* output) {
    Print(root::RemoveOwnEntry(options.root_file), "removed from", "is not in", output);
    return true;
}

}  // namespace dpdu
