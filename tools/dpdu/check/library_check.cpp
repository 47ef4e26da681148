#include "check/library_check.h"

#include <algorithm>
#include <set>

#include "check/child_process.h"
#include "check/description_file.h"
#include "check/group.h"
#include "check/library_answers.h"
#include "check/library_file.h"
#include "params/known_objects.h"
#include "params/param_value.h"

namespace dpdu::check {
namespace {

constexpr char kAskSupplier[] = "ask its supplier";
constexpr std::size_t kFunctionCount = 29;
constexpr int kNameVersionParts = 3;

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

// "Name_1_2_3" ends in the version 1.2.3; packed as the library has it.
std::optional<std::uint32_t> VersionInName(const std::string& short_name) {
    std::size_t at = short_name.size();
    for (int part = 0; part < kNameVersionParts; ++part) {
        if (at == 0) return std::nullopt;
        at = short_name.rfind('_', at - 1);
        if (at == short_name.npos) return std::nullopt;
    }
    std::string text = short_name.substr(at + 1);
    std::ranges::replace(text, '_', '.');
    return VersionIn(text);
}

// False: the library is of another kind than this process, so it is not loaded.
bool CheckKind(const std::string& path, Group* group) {
    const ProgramKind kind = ReadProgramKind(path);
    const ProgramKind own = ReadProgramKind(OwnProgram());
    if (kind.format == ProgramKind::Format::kNone) {
        group->Wrong(path + " is " + KindText(kind), "name the library in the root file");
        return false;
    }
    if (!kind.RunsWith(own)) {
        group->Wrong(path + " is a " + KindText(kind) + ", this process is a " + KindText(own),
                     "list it in the root file of programs of its kind");
        return false;
    }
    if (!kind.is_library) {
        group->Wrong(path + " is a " + KindText(kind), "name the library in the root file");
    }
    return kind.is_library;
}

// All names of the module description and all that this program knows.
LibraryQuestions QuestionsFor(const LibraryCheck& check) {
    LibraryQuestions questions;
    questions.path = check.path;
    questions.wait = check.wait;
    questions.is_verbose = check.is_verbose;
    std::set<ObjectKey> seen;
    const auto add = [&](const ObjectKey& key) {
        if (seen.insert(key).second) questions.objects.push_back(key);
    };
    if (check.description != nullptr) {
        for (const DescribedObject& object : check.description->objects)
            add(object.key);
        questions.links = check.description->links;
    }
    for (const ObjectType& type : ObjectTypes()) {
        for (const std::string& name : KnownNames(type.type))
            add({type.type, name});
    }
    return questions;
}

// ---------------------------------------------------------------- the library itself

void ReportLoading(const std::string& path, const LibraryAnswers& answers, Group* group) {
    if (!answers.load_error.empty()) {
        group->Wrong(path + " cannot be loaded: " + answers.load_error,
                     "install what it needs, or install it again");
    } else if (!answers.missing_functions.empty()) {
        group->Wrong(path + " lacks " + std::to_string(answers.missing_functions.size()) + " of " +
                         std::to_string(kFunctionCount) +
                         " functions: " + Joined(answers.missing_functions),
                     "install a complete version of it");
    } else if (!answers.construct_error.empty()) {
        group->Wrong(answers.construct_error, kAskSupplier);
    }
    if (!answers.fault.empty()) group->Wrong(answers.fault, kAskSupplier);
}

// ---------------------------------------------------------------- names, ids and kinds

// The one id of a described object. Nothing: the library was not asked for it.
const std::optional<UNUM32>* AnswerFor(const LibraryAnswers& answers, const ObjectKey& key) {
    const auto found = answers.ids.find(key);
    return found == answers.ids.end() ? nullptr : &found->second;
}

void CheckDescribedNames(const ModuleDescription& description, const LibraryAnswers& answers,
                         Group* group) {
    for (const DescribedObject& object : description.objects) {
        const std::optional<UNUM32>* id = AnswerFor(answers, object.key);
        if (id == nullptr) continue;
        if (!*id) {
            group->Wrong(object.place + ": the library does not know the name",
                         "remove it from the module description, or install the version of the "
                         "library that it is for");
        } else if (**id != object.id) {
            group->Wrong(object.place + ": the ID is " + std::to_string(object.id) +
                             ", the library says " + std::to_string(**id),
                         "write " + std::to_string(**id));
        }
    }
}

// Names that the library knows and the file lacks, of one kind.
void CheckLackingNames(const ObjectType& type, const std::set<ObjectKey>& described,
                       const LibraryAnswers& answers, Group* group) {
    std::vector<std::string> lacking;
    for (const auto& [key, id] : answers.ids) {
        if (key.first != type.type || !id || described.contains(key)) continue;
        lacking.push_back(key.second + " " + std::to_string(*id));
    }
    if (lacking.empty()) return;
    group->Wrong("the library knows " + std::to_string(lacking.size()) + " of " + type.element +
                     " that the module description lacks: " + Joined(lacking),
                 "add them with these ids");
}

void CheckNamesAndIds(const ModuleDescription& description, const LibraryAnswers& answers,
                      Findings* findings) {
    Group group("names and ids", findings);
    const bool knows_any =
        std::ranges::any_of(answers.ids, [](const auto& row) { return row.second.has_value(); });
    if (!answers.construct_error.empty() && !knows_any) {
        group.Note("cannot be compared: the library answers only after PDUConstruct");
        return;
    }
    CheckDescribedNames(description, answers, &group);
    std::set<ObjectKey> described;
    for (const DescribedObject& object : description.objects)
        described.insert(object.key);
    for (const ObjectType& type : ObjectTypes())
        CheckLackingNames(type, described, answers, &group);
    if (answers.fault.empty()) {
        group.Held(std::to_string(description.objects.size()) + " as the library says");
    }
}

void CheckKindOf(const DescribedObject& param, const ComParamKind& kind, Group* group) {
    if (param.kind.type != 0 && param.kind.type != kind.type) {
        group->Wrong(param.place + ": DATA_TYPE is " + ParamTypeText(param.kind.type) +
                         ", the library says " + ParamTypeText(kind.type),
                     "write " + ParamTypeText(kind.type));
    }
    if (param.kind.param_class != 0 && param.kind.param_class != kind.param_class) {
        group->Wrong(param.place + ": CLASS is " + ParamClassText(param.kind.param_class) +
                         ", the library says " + ParamClassText(kind.param_class),
                     "write " + ParamClassText(kind.param_class));
    }
}

// Libraries with ComParams of each link answer only where there is one, which another program may
// keep from being opened.
void ReportRefused(const std::map<std::string, std::vector<std::string>>& refused,
                   const LibraryAnswers& answers, Group* group) {
    const bool has_module = answers.module_types && !answers.module_types->empty();
    for (const auto& [status, names] : refused) {
        const std::string count = std::to_string(names.size());
        if (!has_module) {
            group->Note(count + " cannot be compared: the library has them on links only",
                        "connect a module and check again");
        } else if (!answers.module_error.empty()) {
            group->Note(count + " cannot be compared: " + answers.module_error,
                        "close the program that uses the module, and check again");
        } else {
            group->Wrong(
                "PDUGetComParam returns " + status + " for " + count + ": " + Joined(names),
                "describe a RESOURCE on which the library has them, or remove them");
        }
    }
}

void CheckComParams(const ModuleDescription& description, const LibraryAnswers& answers,
                    Findings* findings) {
    if (!answers.construct_error.empty()) return;
    Group group("ComParams", findings);
    std::size_t compared = 0;
    std::map<std::string, std::vector<std::string>> refused;  // by status
    for (const DescribedObject& object : description.objects) {
        if (object.key.first != PDU_OBJT_COMPARAM) continue;
        const auto kind = answers.com_params.find(object.id);
        if (kind != answers.com_params.end()) {
            CheckKindOf(object, kind->second, &group);
            ++compared;
        }
        const auto status = answers.refused_com_params.find(object.id);
        if (status != answers.refused_com_params.end()) {
            refused[status->second].push_back(object.key.second);
        }
    }
    ReportRefused(refused, answers, &group);
    if (!group.HasNote() && answers.fault.empty()) {
        group.Held("types and classes of " + std::to_string(compared) + " as the library says");
    }
}

// ---------------------------------------------------------------- module and versions

void CheckModuleTypes(const ModuleDescription& description, const std::vector<UNUM32>& found,
                      Findings* findings) {
    Group group("module types", findings);
    const std::vector<std::uint32_t>& described = description.module_types;
    for (const UNUM32 type : std::set<UNUM32>(found.begin(), found.end())) {
        if (std::ranges::find(described, type) != described.end()) continue;
        group.Wrong("no MODULETYPE has the id " + std::to_string(type) +
                        ", which the library gives a module",
                    "describe it");
    }
    group.Held("the id of the module is described");
}

void CheckVersions(const LibraryCheck& check, const LibraryVersions& versions, Findings* findings) {
    Group group("versions", findings);
    const std::optional<std::uint32_t> named = VersionInName(check.short_name);
    if (named && *named != versions.library) {
        group.Wrong("SHORT_NAME has the version " + VersionText(*named) + ", the library is " +
                        VersionText(versions.library),
                    "install the entry of this version");
    }
    const std::string standard = VersionText(versions.standard);
    const auto described = check.description == nullptr ? std::optional<std::uint32_t>()
                                                        : check.description->standard_version;
    if (described && *described != versions.standard) {
        group.Wrong("the module description is for ISO 22900-2 version " + VersionText(*described) +
                        ", the library for " + standard,
                    "write " + standard + " into MVCI_PART2_STANDARD_VERSION");
    }
    if (check.root_standard_version && *check.root_standard_version != versions.standard) {
        // The file is of all vendors.
        group.Note("the root file is for ISO 22900-2 version " +
                   VersionText(*check.root_standard_version) + ", the library for " + standard);
    }
    group.Held("library " + VersionText(versions.library) + ", ISO 22900-2 " + standard);
}

void CheckModule(const LibraryCheck& check, const LibraryAnswers& answers, Findings* findings) {
    if (!answers.module_types || answers.module_types->empty()) {
        Group group("module", findings);
        if (!answers.module_error.empty()) {
            group.Wrong(answers.module_error, kAskSupplier);
        } else if (answers.module_types) {
            group.Note("none was found: its type and the versions cannot be compared",
                       "connect one and check again");
        }
        return;
    }
    if (check.description != nullptr) {
        CheckModuleTypes(*check.description, *answers.module_types, findings);
    }
    if (answers.versions) {
        CheckVersions(check, *answers.versions, findings);
    } else if (!answers.module_error.empty()) {
        Group group("module", findings);
        group.Note("its versions cannot be compared: " + answers.module_error);
    }
}

}  // namespace

void CheckLibrary(const LibraryCheck& check, Findings* findings) {
    LibraryAnswers answers;
    {
        Group group("library", findings);
        if (!CheckKind(check.path, &group)) return;
        answers = AskLibrary(QuestionsFor(check), check.limit);
        ReportLoading(check.path, answers, &group);
        group.Held(KindText(ReadProgramKind(check.path)) + ", all " +
                   std::to_string(kFunctionCount) + " functions");
    }
    if (check.description != nullptr && !answers.ids.empty()) {
        CheckNamesAndIds(*check.description, answers, findings);
        CheckComParams(*check.description, answers, findings);
    }
    CheckModule(check, answers, findings);
}

}  // namespace dpdu::check
