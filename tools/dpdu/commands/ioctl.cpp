#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/dongle_report.h"
#include "commands/module_session.h"
#include "console/failure.h"
#include "pdu/io_control.h"
#include "pdu/own_library.h"
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

// Values that this project's library does not measure.
bool IsConstant(const Plan& plan) {
    return plan.name == "PDU_IOCTL_READ_VBATT" ||
           plan.name == "PDU_IOCTL_READ_IGNITION_SENSE_STATE";
}

constexpr char kConstant[] = "constant of the library";
constexpr std::chrono::milliseconds kReportLimit{2500};  // dongles report once a second

Json ReportJson(const DongleReport& report) {
    if (!report.battery_mv && !report.ignition) return {};
    Json json = Json::object();
    if (report.battery_mv) json["batteryMv"] = *report.battery_mv;
    if (report.ignition) json["ignition"] = *report.ignition;
    return json;
}

// Programming on a flat battery bricks a control unit, so a constant may not look like a
// measurement.
std::string ReportText(const Plan& plan, const DongleReport& report) {
    if (plan.meaning == IoMeaning::kMillivolts) {
        if (!report.battery_mv) {
            return "the dongle reported no voltage; measure the battery before programming";
        }
        char text[60];
        std::snprintf(text, sizeof text, "%.3f V  reported by the dongle",
                      static_cast<double>(*report.battery_mv) / 1000);
        return text;
    }
    if (!report.ignition) return "the dongle reported no ignition";
    return std::string(*report.ignition ? "on" : "off") + "  reported by the dongle";
}

void Print(const Plan& plan, UNUM32 id, const PDU_DATA_ITEM* result,
           const std::optional<DongleReport>& report, Output* output) {
    if (output->AsJson()) {
        Json document = {{"command", plan.name},
                         {"id", id},
                         {"output", result ? IoOutputJson(*result) : Json()}};
        if (report) {
            document["source"] = kConstant;
            document["dongle"] = ReportJson(*report);
        }
        output->Document(document);
        return;
    }
    const std::string text = result ? IoOutputText(*result, plan.meaning) : "done";
    output->Line(report ? text + "  " + kConstant + ", not measured" : text);
    if (report) output->Line(ReportText(plan, *report));
}

}  // namespace

ExitCode RunIoCtl(const CommonOptions& common, const IoCtlOptions& options, Output* output) {
    const Plan plan = MakePlan(options);
    IoInput input(plan.input_type, plan.input_text);
    ModuleSession module(common);
    const Session& session = *module.GetSession();
    const UNUM32 id =
        plan.number ? *plan.number : session.RequireObject(PDU_OBJT_IO_CTRL, plan.name);
    pdu::Item<PDU_DATA_ITEM> result(session.Functions());
    Check(session.Functions().IoCtl(module.Module().Handle(), PDU_HANDLE_UNDEF, id, input.Get(),
                                    result.Out()),
          "PDUIoCtl");
    std::optional<DongleReport> report;
    if (IsConstant(plan) && IsOwnLibrary(module.Module())) {
        report = AwaitDongleReport(module.GetSession(), kReportLimit);
    }
    Print(plan, id, result.Get(), report, output);
    return ExitCode::kOk;
}

}  // namespace dpdu
