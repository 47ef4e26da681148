#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

Json ModuleJson(const ModuleInfo& module) {
    return {{"handle", module.handle},
            {"type", module.type},
            {"name", module.name},
            {"serialNumber", module.serial_number},
            {"connection", module.connection},
            {"state", StateText(module.state)},
            {"vendorModuleName", module.vendor_name},
            {"vendorAdditionalInfo", module.additional_info}};
}

// The whole vendor name if the library does not use key='value'.
Row ModuleRow(const ModuleInfo& module) {
    const std::string handle = std::to_string(module.handle);
    if (module.name.empty()) return {handle, module.vendor_name, "", "", StateText(module.state)};
    return {handle, module.name, module.serial_number, module.connection, StateText(module.state)};
}

}  // namespace

ExitCode RunModules(const CommonOptions& common, Output* output) {
    Session session(common.LoadFunctions(), common.option_string);
    const std::vector<ModuleInfo> modules = WaitForModules(&session, common.module, common.Wait());

    if (output->AsJson()) {
        Json list = Json::array();
        for (const ModuleInfo& module : modules)
            list.push_back(ModuleJson(module));
        output->Document({{"modules", list}});
    } else if (!modules.empty()) {
        std::vector<Row> rows = {{"HANDLE", "NAME", "SERIAL", "CONNECTION", "STATE"}};
        for (const ModuleInfo& module : modules)
            rows.push_back(ModuleRow(module));
        output->Table(rows);
    }
    if (!modules.empty()) return ExitCode::kOk;
    ErrorLine("no module found" + NextStep(ExitCode::kNoModule));
    return ExitCode::kNoModule;
}

}  // namespace dpdu
