#include "radio/radio_commands.h"

#include <nlohmann/json.hpp>

#include "control/command_table.h"

namespace brennix {

namespace {

using OrderedJson = nlohmann::ordered_json;

struct Context {
    Radio* radio;
    std::size_t dongle;  // "@N" before the command
    std::string_view rest;
};

CommandResult RunRadio(Context* context) {
    Radio& radio = *context->radio;
    if (!context->rest.empty()) {
        RadioSettings settings = radio.Settings(context->dongle);
        ChangeRadioSettings(std::string(context->rest), &settings);
        radio.Change(context->dongle, settings);
    }
    const Radio::LinkState state = radio.State(context->dongle);
    const OrderedJson json = {
        {"connecting", state.connecting}, {"connected", state.connected},
        {"subscribed", state.subscribed}, {"connections", state.connections},
        {"advertised", state.advertised}, {"adapter", AdapterName(radio.Adapter())},
        {"computers", radio.Centrals()},  {"scanning", radio.Scanning()}};
    return Ok(json.dump());
}

CommandResult RunAdapter(Context* context) {
    const std::string_view word = TakeWord(&context->rest);
    for (const AdapterState state :
         {AdapterState::kOn, AdapterState::kOff, AdapterState::kAbsent}) {
        if (word != AdapterName(state)) continue;
        context->radio->SetAdapter(state);
        return Ok();
    }
    throw UsageError("expected on, off or absent");
}

CommandResult RunLose(Context* context) {
    if (!context->radio->Lose(context->dongle)) throw UsageError("nobody is connected");
    return Ok();
}

CommandResult RunNotify(Context* context) {
    if (!context->radio->Notify(context->dongle, TakeHex(&context->rest))) {
        throw UsageError("nobody has subscribed");
    }
    return Ok();
}

CommandResult RunReset(Context* context) {
    context->radio->Reset();
    return Ok();
}

CommandResult RunHelp(Context*);

constexpr CommandRow<Context> kCommands[] = {
    {"radio", "", "connections, counts and adapter as JSON", RunRadio},
    {"radio", "{SETTINGS}", "changes the dongle's radio settings; see the README", RunRadio},
    {"adapter", "on|off|absent", "sets the computers' Bluetooth adapter", RunAdapter},
    {"lose", "", "loses the connection; the dongle keeps advertising", RunLose},
    {"notify", "[HEX]", "sends these bytes as one notification", RunNotify},
    {"reset", "", "restores settings, adapter and dongles", RunReset},
    {"help", "", "this list on one line", RunHelp},
};

CommandResult RunHelp(Context*) { return Ok(ListCommands<Context>(kCommands)); }

}  // namespace

std::string RadioCommands::Help() { return DescribeCommands<Context>(kCommands); }

CommandResult RadioCommands::Run(std::string_view line) {
    try {
        std::string_view rest = SkipBlanks(line);
        Context context = {radio_, TakeMark(&rest, '@').value_or(0), {}};
        const std::string_view name = TakeWord(&rest);
        context.rest = rest;
        const auto* row = FindCommand<Context>(kCommands, name);
        if (row == nullptr) return dongles_.Run(line);
        if (context.dongle >= radio_->Dongles().Count()) {
            throw UsageError("no dongle @" + std::to_string(context.dongle));
        }
        return row->Run(&context);
    } catch (const UsageError& error) {
        return {std::string("error: ") + error.what(), {}};
    }
}

}  // namespace brennix
