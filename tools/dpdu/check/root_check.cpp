#include "check/root_check.h"

#include <filesystem>
#include <set>

#include "check/cable_description.h"
#include "check/description_file.h"
#include "check/entry_check.h"
#include "check/library_check.h"
#include "check/module_description.h"
#include "console/failure.h"
#include "console/progress.h"
#include "root/entry.h"
#include "root/root_file.h"
#include "text/names.h"

namespace dpdu::check {
namespace {

// Applications find the machine's file by what the registry says, and some are particular.
void CheckPlace(const std::string& path, Group* group) {
    if (!PathOf(path).is_absolute() || path.starts_with("\\\\") || path.starts_with("//")) {
        group->Wrong("its path " + path + " is not absolute, or of another computer",
                     "enter the full path with a drive letter in the registry");
    }
    if (!path.ends_with(".xml")) {
        group->Wrong("its path " + path + " does not end in .xml", "rename the file");
    }
}

bool IsThere(const std::string& path, bool is_machines, Group* group) {
    if (path.empty()) {
        group->Wrong("the registry names no root file, so applications find no library",
                     "dpdu root add enters this project's library");
        return false;
    }
    std::error_code error;
    if (std::filesystem::is_regular_file(PathOf(path), error)) return true;
    group->Wrong(path + " is missing or no file",
                 is_machines ? "dpdu root add makes it with this project's library"
                             : "name another with --root");
    return false;
}

void CheckRootElement(const xml::Element& root, Group* group) {
    if (root.FindAttribute("xmlns") != nullptr) {
        group->Wrong("it has a default namespace (xmlns)",
                     "remove it: some applications then find no entry");
    }
    std::set<std::string> names;
    for (const auto& child : root.children) {
        const std::string name = child->ChildText("SHORT_NAME");
        if (child->name != root::kEntryElement) {
            group->Note("line " + std::to_string(child->line) + ": " + child->name +
                        " is no entry of a library");
        } else if (!name.empty() && !names.insert(name).second) {
            group->Wrong(PlaceOf(*child) + " is there a second time", "keep one");
        }
    }
    const std::size_t count = root.ChildrenNamed(root::kEntryElement).size();
    group->Held(count == 0   ? "lists no library"
                : count == 1 ? "lists 1 library"
                             : "lists " + std::to_string(count) + " libraries");
}

EntryReport CheckOneEntry(const xml::Element& element, const RootCheck& check,
                          std::optional<std::uint32_t> standard_version) {
    EntryReport report;
    report.name = element.ChildText("SHORT_NAME");
    if (report.name.empty()) report.name = "line " + std::to_string(element.line);
    const Progress progress("checking " + report.name);
    const EntryFiles files = CheckEntry(element, &report.findings);
    std::optional<ModuleDescription> description;
    if (!files.module_description.empty()) {
        description = CheckModuleDescription(files.module_description, &report.findings);
    }
    if (!files.cable_description.empty()) {
        CheckCableDescription(files.cable_description, &report.findings);
    }
    if (!files.library.empty()) {
        CheckLibrary({.path = files.library,
                      .short_name = report.name,
                      .root_standard_version = standard_version,
                      .description = description ? &*description : nullptr,
                      .wait = check.wait,
                      .limit = check.limit,
                      .is_verbose = check.is_verbose},
                     &report.findings);
    }
    return report;
}

}  // namespace

RootReport CheckRoot(const RootCheck& check) {
    const bool is_machines = check.file.empty();
    RootReport report;
    report.file = is_machines ? root::MachineRootFile() : check.file;
    Group group("root file", &report.findings);
    if (!IsThere(report.file, is_machines, &group)) return report;
    if (is_machines) CheckPlace(report.file, &group);
    const auto document = ReadDescription(report.file, root::kRootElement, &group);
    if (!document) return report;
    const auto standard_version = StandardVersionOf(document->root, &group);
    CheckRootElement(document->root, &group);
    CheckRights({report.file}, &report.findings);
    for (const xml::Element* element : document->root.ChildrenNamed(root::kEntryElement)) {
        const bool is_wanted =
            check.short_name.empty() || element->ChildText("SHORT_NAME") == check.short_name;
        if (is_wanted) report.entries.push_back(CheckOneEntry(*element, check, standard_version));
    }
    if (!check.short_name.empty() && report.entries.empty()) {
        root::FindEntry(check.file, check.short_name);  // throws, with the names that are there
    }
    return report;
}

}  // namespace dpdu::check
