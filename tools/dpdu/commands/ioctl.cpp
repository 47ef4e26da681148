#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "console/failure.h"
#include "pdu/io_control.h"
#include "pdu/item.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

// What the command line asks for, resolved without a library.
struct Plan {
    std::string name;  // name in the standard, or the number
    std::optional<UNUM32> number;
    std::string input_type = "none";
    std::string input_text;
    IoMeaning meaning = IoMeaning::kNumber;
};

Plan MakePlan(const IoCtlOptions& options) {
    Plan plan;
    plan.name = options.command;
    if (const IoControl* control = FindIoControl(options.command)) {
        plan.name = control->name;
        plan.input_type = control->input_type;
        plan.meaning = control->meaning;
    } else {
        plan.number = ParseNumber(options.command);
    }
    plan.input_text = options.argument;
    const std::size_t equals = options.argument.find('=');
    if (equals != std::string::npos) {
        plan.input_type = options.argument.substr(0, equals);
        plan.input_text = options.argument.substr(equals + 1);
    } else if (!options.argument.empty() && plan.input_type == "none") {
        throw UsageError("the input of " + plan.name + " needs its type, as in number=1");
    }
    return plan;
}

void Print(const Plan& plan, UNUM32 id, const PDU_DATA_ITEM* result, Output* output) {
    if (output->AsJson()) {
        output->Document({{"command", plan.name},
                          {"id", id},
                          {"output", result ? IoOutputJson(*result) : Json()}});
        return;
    }
    output->Line(result ? IoOutputText(*result, plan.meaning) : "done");
}

}  // namespace

ExitCode RunIoCtl(const CommonOptions& common, const IoCtlOptions& options, Output* output) {
    const Plan plan = MakePlan(options);
    IoInput input(plan.input_type, plan.input_text);
    ModuleSession module(common);
    const Session& session = *module.GetSession();
    const UNUM32 id =
        plan.number ? *plan.number : session.RequireObject(PDU_OBJT_IO_CTRL, plan.name);
    Item<PDU_DATA_ITEM> result(session.Functions());
    Check(session.Functions().IoCtl(module.Module().Handle(), PDU_HANDLE_UNDEF, id, input.Get(),
                                    result.Receive()),
          "PDUIoCtl");
    Print(plan, id, result.Get(), output);
    return ExitCode::kOk;
}

}  // namespace dpdu
