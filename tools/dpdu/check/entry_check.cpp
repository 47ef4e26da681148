#include "check/entry_check.h"

#include <filesystem>
#include <set>

#include "check/file_rights.h"
#include "root/entry.h"
#include "text/names.h"

namespace dpdu::check {
namespace {

struct Part {
    const char* element;
    std::string EntryFiles::*file;  // null: a text
};
constexpr Part kParts[] = {
    {"SHORT_NAME", nullptr},
    {"DESCRIPTION", nullptr},
    {"SUPPLIER_NAME", nullptr},
    {"LIBRARY_FILE", &EntryFiles::library},
    {"MODULE_DESCRIPTION_FILE", &EntryFiles::module_description},
    {"CABLE_DESCRIPTION_FILE", &EntryFiles::cable_description},
};

bool IsPart(const std::string& element) {
    for (const Part& part : kParts) {
        if (element == part.element) return true;
    }
    return false;
}

void CheckText(const xml::Element& element, Group* group) {
    if (xml::Trimmed(element.text).empty()) {
        group->Wrong(element.name + " is empty", "write a text");
    } else if (element.name == "SHORT_NAME" && xml::Trimmed(element.text) != element.text) {
        group->Wrong("SHORT_NAME has blanks or line ends around the name",
                     "remove them: some applications compare the text as it is");
    }
}

void CheckElements(const xml::Element& entry, Findings* findings) {
    Group group("entry", findings);
    for (const Part& part : kParts) {
        const auto elements = entry.ChildrenNamed(part.element);
        if (elements.empty()) {
            group.Wrong(std::string(part.element) + " is missing",
                        "add it: some applications refuse the root file without it");
        } else if (elements.size() > 1) {
            group.Wrong(std::string(part.element) + " is there " + std::to_string(elements.size()) +
                            " times",
                        "keep one");
        } else if (part.file == nullptr) {
            CheckText(*elements.front(), &group);
        }
    }
    for (const auto& child : entry.children) {
        if (IsPart(child->name)) continue;
        group.Note("line " + std::to_string(child->line) + ": " + child->name +
                   " is no known element of an entry");
    }
    group.Held("all six elements are there once");
}

// Why no application finds a file by this address; empty: it may.
std::string FaultOf(const std::string& uri) {
    if (!uri.starts_with("file:")) return "it does not begin with file:///";
    if (!uri.starts_with("file:///")) {
        return uri.starts_with("file://") ? "it has the name of a host"
                                          : "it does not begin with file:///";
    }
    const std::string path = root::PathOfUri(uri);
    if (path.starts_with("//")) return "it has the name of a host";
    if (!PathOf(path).is_absolute()) return "it is not an absolute path of this system";
    if (path.find('\\') != path.npos) return "it contains '\\'";
    if (root::HasParentFolder(path)) return "it contains '..'";
    for (const char byte : {'?', '#'}) {
        if (path.find(byte) != path.npos) return "it contains '" + std::string(1, byte) + "'";
    }
    return "";
}

// The path, or an empty text.
std::string CheckAddress(const xml::Element& element, Group* group) {
    const std::string* uri = element.FindAttribute("URI");
    if (uri == nullptr) {
        group->Wrong(element.name + " has no attribute URI", "write the address of the file there");
        return "";
    }
    const std::string fault = FaultOf(*uri);
    if (!fault.empty()) {
        group->Wrong(element.name + " '" + *uri + "': " + fault,
                     "write file:/// and the absolute path with '/', without '..', '?' and '#'");
        return "";
    }
    if (uri->find_first_of(" \t\r\n") != uri->npos) {
        group->Note(element.name + " '" + *uri + "' contains blanks",
                    "most applications accept them; a folder without blanks is safer");
    }
    if (uri->find('%') != uri->npos) {
        group->Note(element.name + " '" + *uri + "' contains '%'",
                    "some applications do not decode it: write the path as it is");
    }
    return root::PathOfUri(*uri);
}

bool CheckFile(const std::string& element, const std::string& path, Group* group) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(PathOf(path), error);
    if (!std::filesystem::exists(status)) {
        group->Wrong(element + ": " + path + " is missing",
                     "install the library again, or remove its entry");
    } else if (!std::filesystem::is_regular_file(status)) {
        group->Wrong(element + ": " + path + " is not a file", "write the address of the file");
    } else if (std::FILE* file = OpenFile(path, "rb")) {
        std::fclose(file);
        return true;
    } else {
        group->Wrong(element + ": " + path + " cannot be read", "let every user read it");
    }
    return false;
}

EntryFiles CheckAddresses(const xml::Element& entry, Findings* findings) {
    Group group("addresses", findings);
    EntryFiles files;
    bool has_address = false;
    for (const Part& part : kParts) {
        if (part.file == nullptr) continue;
        if (const xml::Element* element = entry.FindChild(part.element)) {
            files.*part.file = CheckAddress(*element, &group);
            has_address = true;
        }
    }
    if (has_address && !group.HasNote()) group.Held("applications accept them");
    return files;
}

void CheckFiles(EntryFiles* files, Findings* findings) {
    Group group("files", findings);
    std::vector<std::string> paths;
    for (const Part& part : kParts) {
        if (part.file == nullptr) continue;
        std::string& path = files->*part.file;
        if (!path.empty() && !CheckFile(part.element, path, &group)) path.clear();
        if (!path.empty()) paths.push_back(path);
    }
    if (paths.empty()) return;
    group.Held(std::to_string(paths.size()) + " files are there");
    CheckRights(paths, findings);
}

}  // namespace

void CheckRights(const std::vector<std::string>& paths, Findings* findings) {
    Group group("rights", findings);
    std::set<std::string> seen;  // one folder leads to several files
    for (const std::string& path : paths) {
        const std::optional<Writer> writer = OtherWriter(path);
        if (!writer || !seen.insert(writer->path).second) continue;
        group.Note(writer->path + " can be changed by " + writer->who,
                   "install where only administrators can change files: some applications refuse "
                   "others");
    }
    if (!group.HasNote()) group.Held("only administrators can change what is there");
}

EntryFiles CheckEntry(const xml::Element& entry, Findings* findings) {
    CheckElements(entry, findings);
    EntryFiles files = CheckAddresses(entry, findings);
    CheckFiles(&files, findings);
    return files;
}

}  // namespace dpdu::check
