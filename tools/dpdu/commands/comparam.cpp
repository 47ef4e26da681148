#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "console/interruption.h"
#include "console/progress.h"
#include "params/com_param_names.h"
#include "params/com_params.h"

namespace dpdu {
namespace {

struct NamedParam {
    std::string name;
    ComParam param;
};

void Print(const std::vector<NamedParam>& params, Output* output) {
    if (output->AsJson()) {
        Json list = Json::array();
        for (const auto& [name, param] : params) {
            list.push_back({{"name", name},
                            {"id", param.id},
                            {"type", ParamTypeText(param.value.type)},
                            {"class", ParamClassText(param.param_class)},
                            {"value", ParamJson(param.value)}});
        }
        output->Document({{"comParams", list}});
        return;
    }
    std::vector<Row> rows;
    rows.reserve(params.size());
    for (const auto& [name, param] : params) {
        rows.push_back({name, ParamText(param.value), ParamTypeText(param.value.type),
                        ParamClassText(param.param_class)});
    }
    output->Table(rows);
}

// An offline link for reading the library's values.
class ParamLink {
public:
    ParamLink(const CommonOptions& common, const ComParamOptions& options)
        : module_(common), link_(module_.Module(), options.link) {}

    NamedParam Get(const std::string& name) const {
        return {name, GetComParam(link_.GetSession(), link_.Handles(), name)};
    }
    std::optional<ComParam> Find(const std::string& name) const {
        return FindComParam(link_.GetSession(), link_.Handles(), name);
    }
    void Set(const std::string& name, const std::string& text) const {
        SetComParam(link_.GetSession(), link_.Handles(), name, text);
    }

private:
    ModuleSession module_;
    Link link_;
};

}  // namespace

ExitCode RunComParamGet(const CommonOptions& common, const ComParamOptions& options,
                        Output* output) {
    const ParamLink link(common, options);
    std::vector<NamedParam> params;
    for (const std::string& name : options.names)
        params.push_back(link.Get(name));
    Print(params, output);
    return ExitCode::kOk;
}

// Shows the values read back from the library.
ExitCode RunComParamSet(const CommonOptions& common, const ComParamOptions& options,
                        Output* output) {
    const ParamLink link(common, options);
    for (const auto& [name, text] : options.assignments)
        link.Set(name, text);
    std::vector<NamedParam> params;
    for (const auto& [name, text] : options.assignments)
        params.push_back(link.Get(name));
    Print(params, output);
    return ExitCode::kOk;
}

ExitCode RunComParamList(const CommonOptions& common, const ComParamOptions& options,
                         Output* output) {
    const ParamLink link(common, options);
    const Progress progress("reading ComParams");
    std::vector<NamedParam> params;
    for (const std::string name : KnownComParamNames()) {
        if (name.find(options.filter) == std::string::npos) continue;
        ThrowIfInterrupted();
        if (const std::optional<ComParam> param = link.Find(name)) params.push_back({name, *param});
    }
    Print(params, output);
    if (params.empty()) ErrorLine("no ComParam whose name contains '" + options.filter + "'");
    return SuccessIf(!params.empty());
}

}  // namespace dpdu
