#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "console/interruption.h"
#include "console/progress.h"
#include "params/com_param_names.h"
#include "pdu/io_control.h"

namespace dpdu {
namespace {

constexpr ObjectType kTypes[] = {
    {"protocol", PDU_OBJT_PROTOCOL}, {"bus-type", PDU_OBJT_BUSTYPE},
    {"ioctl", PDU_OBJT_IO_CTRL},     {"comparam", PDU_OBJT_COMPARAM},
    {"pin-type", PDU_OBJT_PINTYPE},  {"resource", PDU_OBJT_RESOURCE},
};

// Short names from the standard that libraries may know, and this project's own.
struct KnownObject {
    T_PDU_OBJT type;
    const char* name;
};
constexpr KnownObject kKnownObjects[] = {
    {PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2"},
    {PDU_OBJT_PROTOCOL, "ISO_14229_3_on_ISO_15765_2"},
    {PDU_OBJT_PROTOCOL, "ISO_14229_5_on_ISO_13400_2"},
    {PDU_OBJT_PROTOCOL, "ISO_14230_3_on_ISO_14230_2"},
    {PDU_OBJT_PROTOCOL, "ISO_15031_5_on_ISO_15765_4"},
    {PDU_OBJT_PROTOCOL, "ISO_11898_RAW"},
    {PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN"},
    {PDU_OBJT_BUSTYPE, "ISO_11898_3_DWFTCAN"},
    {PDU_OBJT_BUSTYPE, "ISO_14230_1_UART"},
    {PDU_OBJT_BUSTYPE, "IEEE_802_3"},
    {PDU_OBJT_PINTYPE, "HI"},
    {PDU_OBJT_PINTYPE, "LOW"},
    {PDU_OBJT_PINTYPE, "K"},
    {PDU_OBJT_PINTYPE, "L"},
    {PDU_OBJT_PINTYPE, "TX"},
    {PDU_OBJT_PINTYPE, "RX"},
    {PDU_OBJT_PINTYPE, "PLUS"},
    {PDU_OBJT_PINTYPE, "MINUS"},
    {PDU_OBJT_PINTYPE, "SINGLE"},
    {PDU_OBJT_RESOURCE, "ISO_UDS_on_OBD"},
};

struct FoundObject {
    const char* type;
    std::string name;
    UNUM32 id;
};

std::vector<std::string> KnownNames(T_PDU_OBJT type) {
    std::vector<std::string> names;
    if (type == PDU_OBJT_COMPARAM) {
        names.assign(KnownComParamNames().begin(), KnownComParamNames().end());
    } else if (type == PDU_OBJT_IO_CTRL) {
        for (const IoControl& control : IoControls())
            names.emplace_back(control.name);
    } else {
        for (const KnownObject& object : kKnownObjects) {
            if (object.type == type) names.emplace_back(object.name);
        }
    }
    return names;
}

std::vector<FoundObject> ListObjects(const Session& session, const ObjectsOptions& options) {
    const Progress progress("looking up names");
    std::vector<FoundObject> found;
    for (const ObjectType& type : kTypes) {
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
    for (const ObjectType& type : kTypes) {
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

std::span<const ObjectType> ObjectTypes() { return kTypes; }

bool RunObjects(const CommonOptions& common, const ObjectsOptions& options, Output* output) {
    const Session session(common.LoadFunctions(), common.option_string);
    if (options.names.empty()) {
        const std::vector<FoundObject> all = ListObjects(session, options);
        Print(all, output);
        if (all.empty()) ErrorLine("the library knows no such object");
        return !all.empty();
    }
    std::vector<FoundObject> found;
    bool has_all = true;
    for (const std::string& name : options.names) {
        if (LookUp(session, name, options.type, &found) > 0) continue;
        ErrorLine("the library does not know the name '" + name + "'");
        has_all = false;
    }
    Print(found, output);
    return has_all;
}

}  // namespace dpdu
