#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "console/interruption.h"
#include "console/progress.h"
#include "params/known_objects.h"
#include "pdu/session.h"

namespace dpdu {
namespace {

struct FoundObject {
    const char* type;
    std::string name;
    UNUM32 id;
};

std::vector<FoundObject> ListObjects(const Session& session, const ObjectsOptions& options) {
    const Progress progress("looking up names");
    std::vector<FoundObject> found;
    for (const ObjectType& type : ObjectTypes()) {
        if (!options.type.empty() && options.type != type.name) continue;
        for (const std::string& name : KnownNames(type.type)) {
            if (name.find(options.filter) == std::string::npos) continue;
            ThrowIfInterrupted();
            const std::optional<UNUM32> id = session.FindObject(type.type, name);
            if (id) found.push_back({type.name, name, *id});
        }
    }
    return found;
}

// The same name may exist for several object types.
std::size_t LookUp(const Session& session, const std::string& name, const std::string& wanted_type,
                   std::vector<FoundObject>* found) {
    std::size_t count = 0;
    for (const ObjectType& type : ObjectTypes()) {
        if (!wanted_type.empty() && wanted_type != type.name) continue;
        const std::optional<UNUM32> id = session.FindObject(type.type, name);
        if (!id) continue;
        found->push_back({type.name, name, *id});
        ++count;
    }
    return count;
}

void Print(const std::vector<FoundObject>& objects, Output* output) {
    if (output->AsJson()) {
        Json list = Json::array();
        for (const FoundObject& object : objects)
            list.push_back({{"type", object.type}, {"name", object.name}, {"id", object.id}});
        output->Document({{"objects", list}});
        return;
    }
    if (objects.empty()) return;
    std::vector<Row> rows = {{"TYPE", "ID", "NAME"}};
    for (const FoundObject& object : objects)
        rows.push_back({object.type, std::to_string(object.id), object.name});
    output->Table(rows);
}

}  // namespace

ExitCode RunObjects(const CommonOptions& common, const ObjectsOptions& options, Output* output) {
    const Session session(common.LoadFunctions(), common.option_string);
    if (options.names.empty()) {
        const std::vector<FoundObject> all = ListObjects(session, options);
        Print(all, output);
        if (all.empty()) ErrorLine("the library knows no such object");
        return SuccessIf(!all.empty());
    }
    std::vector<FoundObject> found;
    bool has_all = true;
    for (const std::string& name : options.names) {
        if (LookUp(session, name, options.type, &found) > 0) continue;
        ErrorLine("the library does not know the name '" + name + "'");
        has_all = false;
    }
    Print(found, output);
    return SuccessIf(has_all);
}

}  // namespace dpdu
