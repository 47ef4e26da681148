#include "bluez/bluez_run.h"

#include "control/command_table.h"

namespace brennix {

namespace {

constexpr std::chrono::seconds kClientsEndLimit{5};

struct Context {
    Bluez* bluez;
    std::string_view rest;
};

CommandResult RunStop(Context* context) {
    context->bluez->Stop();
    return Ok();
}

bool TakeSwitch(std::string_view* rest) {
    const std::string_view word = TakeWord(rest);
    if (word != "on" && word != "off") throw UsageError("expected on or off");
    return word == "on";
}

CommandResult RunStart(Context* context) {
    if (context->rest.empty()) {
        context->bluez->Start();
        return Ok();
    }
    const bool powered = TakeSwitch(&context->rest);
    context->bluez->Start({{powered, std::string(TakeWord(&context->rest))}});
    return Ok();
}

CommandResult RunMute(Context* context) {
    context->bluez->SetMute(TakeSwitch(&context->rest));
    return Ok();
}

CommandResult RunReportOnce(Context* context) {
    context->bluez->SetReportOnce(TakeSwitch(&context->rest));
    return Ok();
}

CommandResult RunFail(Context* context) {
    const std::uint32_t count = TakeNumber(&context->rest, "a number of calls");
    const std::string method(TakeWord(&context->rest));
    const std::string name(TakeWord(&context->rest));
    if (count == 0 || name.empty()) throw UsageError("expected a count, a method and an error");
    context->bluez->Fail(count, method, name, std::string(context->rest));
    return Ok();
}

CommandResult RunClients(Context* context) { return Ok(std::to_string(context->bluez->Clients())); }

CommandResult RunAdapter(Context* context) { return Ok(context->bluez->AdapterState()); }

CommandResult RunHelp(Context*);

constexpr CommandRow<Context> kCommands[] = {
    {"stop", "", "stops the service, which forgets all devices", RunStop},
    {"start", "[on|off ADDRESS]",
     "starts it again; optionally with a second adapter that knows a device", RunStart},
    {"mute", "on|off", "lets the service do nothing while on", RunMute},
    {"report-once", "on|off", "reports a device once in a discovery while on", RunReportOnce},
    {"fail", "N METHOD ERROR [TEXT]", "lets the next N calls of a method fail with this error",
     RunFail},
    {"clients", "", "number of programs on the bus that have made a call", RunClients},
    {"adapter", "", "the state that the service knows: on, off or absent", RunAdapter},
    {"help", "", "this list on one line", RunHelp},
};

CommandResult RunHelp(Context*) { return Ok(ListCommands<Context>(kCommands)); }

}  // namespace

BluezRun::BluezRun(std::uint16_t radio)
    : bluez_(&loop_, daemon_.Address(), radio),
      control_(
          &loop_, &record_, [this](std::string_view line) { return Obey(line); }, 0) {}

CommandResult BluezRun::Obey(std::string_view line) {
    Context context = {&bluez_, line};
    const std::string_view name = TakeWord(&context.rest);
    const auto* row = FindCommand<Context>(kCommands, name);
    if (row == nullptr) return {"error: unknown command \"" + std::string(name) + "\"", {}};
    return row->Run(&context);
}

void BluezRun::AwaitClientsEnd() {
    if (bluez_.Clients() == 0) return;
    bluez_.SetClientsHandler([this] {
        if (bluez_.Clients() == 0) loop_.Stop();
    });
    loop_.After(kClientsEndLimit, [this] { loop_.Stop(); });
    loop_.Run();
}

int BluezRun::Run(const std::vector<std::string>& command) {
    const int code = program_.Run(command, {{"DBUS_SYSTEM_BUS_ADDRESS", daemon_.Address()},
                                            {"BRENNIX_BLUEZ_CONTROL", control_.Address()}});
    if (!command.empty()) AwaitClientsEnd();
    return code;
}

}  // namespace brennix
