#include "control/commands.h"

#include <nlohmann/json.hpp>

#include "control/command_table.h"
#include "control/raw_commands.h"
#include "control/words.h"
#include "vehicle_file/json_reader.h"
#include "vehicle_file/timeline_file.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix {

namespace {

using OrderedJson = nlohmann::ordered_json;

// What a command works on. Words are taken from the front of `rest`.
struct Context {
    Simulator* simulator;
    std::optional<std::size_t> named;  // "@N" before the command
    std::string_view rest;

    std::size_t Index() const { return named.value_or(0); }
    Dongle& Target() const { return simulator->At(Index()); }
};

Part TakePart(std::string_view* rest) {
    const std::string_view word = TakeWord(rest);
    if (word.empty()) return Part::kAll;
    if (word == "device") return Part::kDevice;
    if (word == "port") return Part::kPort;
    throw UsageError("expected device, port or nothing, found \"" + std::string(word) + "\"");
}

bool TakeSwitch(std::string_view* rest) {
    const std::string_view word = TakeWord(rest);
    if (word.empty() || word == "on") return true;
    if (word == "off") return false;
    throw UsageError("expected on, off or nothing, found \"" + std::string(word) + "\"");
}

ControlUnit& TakeUnit(Context* context) {
    const std::string name(TakeWord(&context->rest));
    ControlUnit* unit = context->Target().Car().Find(name);
    if (unit == nullptr) throw UsageError("no control unit \"" + name + "\"");
    return *unit;
}

// Replaces the escapes "\n", "\r", "\t" and "\\".
std::string Unescape(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            result.push_back(text[i]);
            continue;
        }
        const char letter = text[++i];
        result.push_back(letter == 'n'   ? '\n'
                         : letter == 'r' ? '\r'
                         : letter == 't' ? '\t'
                                         : letter);
    }
    return result;
}

Bytes TextBytes(std::string_view text) { return {text.begin(), text.end()}; }

OrderedJson DongleState(Simulator* simulator, std::size_t index) {
    Dongle& dongle = simulator->At(index);
    const auto count = [&](Direction direction) {
        return simulator->Log().Count({index, direction, std::nullopt});
    };
    return {{"dongle", index},
            {"port", simulator->PortName(index)},
            {"pty", dongle.IsPowered() ? dongle.Port().SlavePath() : ""},
            {"plugged", dongle.IsPowered()},
            {"host", dongle.Port().IsHostThere()},
            {"opens", dongle.Port().Opens()},
            {"received", count(Direction::kIn)},
            {"sent", count(Direction::kOut)},
            {"in_flight", dongle.InFlight()},
            {"violations", dongle.Violations()}};
}

CommandResult RunStats(Context* context) {
    OrderedJson list = OrderedJson::array();
    for (std::size_t i = 0; i < context->simulator->Count(); ++i) {
        if (!context->named || *context->named == i) {
            list.push_back(DongleState(context->simulator, i));
        }
    }
    return Ok(list.dump());
}

CommandResult RunUnplug(Context* context) {
    context->simulator->Unplug(context->Index(), TakePart(&context->rest));
    return Ok();
}

CommandResult RunReplug(Context* context) {
    context->simulator->Plug(context->Index(), TakePart(&context->rest));
    return Ok();
}

CommandResult RunMute(Context* context) {
    context->Target().Setup().mute = TakeSwitch(&context->rest);
    return Ok();
}

CommandResult RunIgnore(Context* context) {
    const std::uint32_t type = TakeType(&context->rest);
    const std::uint32_t count = TakeNumber(&context->rest, "a number of packets");
    context->Target().Setup().ignore.erase(type);
    if (count != 0) context->Target().Setup().ignore[type] = count;
    return Ok();
}

CommandResult RunCut(Context* context) {
    const std::uint32_t count = TakeNumber(&context->rest, "a number of bytes");
    if (count == 0) throw UsageError("expected at least one byte");
    context->Target().Port().CutAfter(count);
    return Ok();
}

CommandResult RunPieces(Context* context) {
    const std::uint32_t size = TakeNumber(&context->rest, "a number of bytes");
    const std::uint32_t interval = TakeNumber(&context->rest, "milliseconds");
    context->Target().Port().SetPieces(size, std::chrono::milliseconds(interval));
    return Ok();
}

CommandResult RunSend(Context* context) {
    context->Target().SendRaw(TakeHex(&context->rest));
    return Ok();
}

CommandResult RunPacket(Context* context) {
    const std::uint32_t type = TakeType(&context->rest);
    context->Target().SendPacket(MakePacket(type, TakeHex(&context->rest)));
    return Ok();
}

CommandResult RunGarbage(Context* context) {
    context->Target().SendNoise(TakeNumber(&context->rest, "a number of bytes"));
    return Ok();
}

CommandResult RunPing(Context* context) {
    context->Target().SendPing(TakeHex(&context->rest));
    return Ok();
}

CommandResult RunLog(Context* context) {
    context->Target().SendPacket(MakePacket(type::kLog, TextBytes(Unescape(context->rest))));
    return Ok();
}

CommandResult RunTele(Context* context) {
    if (context->rest.empty()) {
        context->Target().Script().SendTelemetry();
        return Ok();
    }
    context->Target().SendPacket(MakePacket(type::kTele, TextBytes(context->rest)));
    return Ok();
}

CommandResult RunTelemetry(Context* context) {
    TelemetrySetup setup;
    setup.period_ms = TakeNumber(&context->rest, "milliseconds");
    if (!context->rest.empty()) {
        const nlohmann::json json = ParseJson(std::string(context->rest), "telemetry");
        setup.texts = ReadTelemetryTexts(json, "telemetry");
    }
    context->Target().Setup().timeline.telemetry = std::move(setup);
    context->Target().Script().RestartTelemetry();
    return Ok();
}

CommandResult RunPower(Context* context) {
    Power power = context->Target().Script().CurrentPower();
    if (!context->rest.empty()) power.battery_mv = TakeNumber(&context->rest, "millivolts");
    if (!context->rest.empty()) power.ignition = TakeSwitch(&context->rest);
    context->Target().Script().SetPower(power);
    const OrderedJson state = {{"battery_mV", power.battery_mv}, {"ignition", power.ignition}};
    return Ok(state.dump());
}

CommandResult RunTimeline(Context* context) {
    if (TakeWord(&context->rest) != "restart") throw UsageError("expected restart");
    context->Target().RestartScripts();
    return Ok();
}

CommandResult RunReplay(Context* context) {
    const Dongle& dongle = context->Target();
    if (dongle.Player() == nullptr) throw UsageError("this dongle plays no trace");
    const OrderedJson state = {{"requests", dongle.Setup().recording->exchanges.size()},
                               {"played", dongle.Player()->Played()},
                               {"unknown", dongle.Player()->Unknown()},
                               {"last_unknown", dongle.LastUnknownRequest()}};
    return Ok(state.dump());
}

CommandResult RunRaw(Context* context) {
    return Ok(RunRawCommand(&context->Target(), context->rest));
}

CommandResult RunBusy(Context* context) {
    Behaviour behaviour;
    behaviour.busy = TakeNumber(&context->rest, "a number of BUSY packets");
    behaviour.busy_reason = std::string(context->rest);
    context->Target().QueueBehaviour(1, behaviour);
    return Ok();
}

CommandResult RunNext(Context* context) {
    const std::uint32_t count = TakeNumber(&context->rest, "a number of requests");
    context->Target().QueueBehaviour(count, ReadBehaviourText(std::string(context->rest)));
    return Ok();
}

CommandResult RunBehaviour(Context* context) {
    context->Target().Setup().behaviour = ReadBehaviourText(std::string(context->rest));
    return Ok();
}

CommandResult RunDongle(Context* context) {
    ChangeDongle(std::string(context->rest), &context->Target().Setup());
    return Ok();
}

CommandResult RunUnit(Context* context) {
    ControlUnit& unit = TakeUnit(context);
    if (!context->rest.empty()) unit.OwnBehaviour() = ReadBehaviourText(std::string(context->rest));
    const ControlUnitSetup& setup = unit.Setup();
    const OrderedJson state = {{"name", setup.name},
                               {"session", unit.CurrentSession()},
                               {"trouble_codes", setup.trouble_codes.size()},
                               {"data", setup.data.size()}};
    return Ok(state.dump());
}

CommandResult RunData(Context* context) {
    ControlUnit& unit = TakeUnit(context);
    const std::string id(TakeWord(&context->rest));
    const std::uint32_t number = ReadHexNumber(nlohmann::json(id), "data identifier", 0xFFFF);
    unit.SetData(static_cast<std::uint16_t>(number), TakeHex(&context->rest));
    return Ok();
}

CommandResult RunReset(Context* context) {
    for (std::size_t i = 0; i < context->simulator->Count(); ++i) {
        if (!context->named || *context->named == i) context->simulator->Reset(i);
    }
    return Ok();
}

CommandResult RunSeal(Context* context) {
    if (TakeWord(&context->rest) != "reset") throw UsageError("expected reset");
    context->simulator->PacketSeal().Reset();
    return Ok();
}

CommandResult RunRecord(Context* context) {
    return RunRecordCommand(&context->simulator->Log(), context->named, context->rest);
}

CommandResult RunWait(Context* context) { return RunWaitCommand(context->named, context->rest); }

CommandResult RunViolations(Context* context) {
    const bool clear = TakeWord(&context->rest) == "clear";
    std::uint64_t sum = 0;
    std::string last;
    for (std::size_t i = 0; i < context->simulator->Count(); ++i) {
        if (context->named && *context->named != i) continue;
        Dongle& dongle = context->simulator->At(i);
        sum += dongle.Violations();
        if (!dongle.LastViolation().empty()) last = " " + dongle.LastViolation();
        if (clear) dongle.ClearViolations();
    }
    return Ok(std::to_string(sum) + last);
}

CommandResult RunQuit(Context* context) {
    context->simulator->Loop().Stop();
    return Ok();
}

CommandResult RunHelp(Context*);

constexpr CommandRow<Context> kCommands[] = {
    {"stats", "", "state and counts of the dongles as JSON", RunStats},
    {"unplug", "[device|port]", "unplugs the dongle, or only one side of it", RunUnplug},
    {"replug", "[device|port]", "plugs it in again", RunReplug},
    {"mute", "[on|off]", "the dongle records everything and answers nothing", RunMute},
    {"ignore", "TYPE N", "does not answer the next N packets of a type", RunIgnore},
    {"cut", "N", "unplugs the dongle after N more bytes to the host", RunCut},
    {"pieces", "N MS", "sends at most N bytes at a time, MS apart; 0 0: no limit", RunPieces},
    {"next", "N {BEHAVIOUR}", "queues a behaviour for the next N requests", RunNext},
    {"busy", "N [REASON]", "sends N BUSY packets before the next answer", RunBusy},
    {"behaviour", "{BEHAVIOUR}", "sets the dongle's behaviour", RunBehaviour},
    {"dongle", "{DONGLE}", "changes keys of the vehicle file's \"dongle\"", RunDongle},
    {"unit", "NAME [{BEHAVIOUR}]", "state of a control unit; sets its behaviour", RunUnit},
    {"data", "NAME ID HEX", "sets a data identifier of a control unit", RunData},
    {"reset", "", "restores everything from the vehicle file; keeps the record", RunReset},
    {"ping", "[HEX]", "sends PING and checks its REPL", RunPing},
    {"log", "TEXT", "sends LOG with the text; \\n is a line feed", RunLog},
    {"tele", "[TEXT]", "sends TELE with the text, or the next text of the set-up", RunTele},
    {"telemetry", "MS [JSON]", "sends TELE every MS milliseconds; 0 stops it", RunTelemetry},
    {"power", "[MV [on|off]]", "battery and ignition: shows or sets them", RunPower},
    {"timeline", "restart", "restarts device log, battery, ignition and replay", RunTimeline},
    {"replay", "", "requests played and requests not in the trace, as JSON", RunReplay},
    {"raw", "", "raw reception, frames sent and received with counts per id, as JSON", RunRaw},
    {"raw", "send ID [HEX]", "sends a frame; answers 1 if the host listens, else 0", RunRaw},
    {"raw", "burst N ID", "sends N frames at once, numbered in their last four bytes", RunRaw},
    {"raw", "received N", "the last N frames of the host as a JSON array", RunRaw},
    {"raw", "clear", "clears the frames of the host", RunRaw},
    {"raw", "frame {FRAME}", "adds or changes a periodic frame; period_ms 0 stops it", RunRaw},
    {"raw", "answer {ANSWER}", "adds an answer to frames, in front of the others", RunRaw},
    {"garbage", "N", "sends N noise bytes and a SYNC", RunGarbage},
    {"packet", "TYPE [HEX]", "sends a packet with this payload", RunPacket},
    {"send", "HEX", "sends these bytes as they are", RunSend},
    {"seal", "reset", "restarts CRYP, for a new process of the host", RunSeal},
    {"record", "count [FILTER]", "number of entries; FILTER: in|out|event|violation, TYPE",
     RunRecord},
    {"record", "last N [FILTER]", "the newest entries as a JSON array", RunRecord},
    {"record", "clear|flush", "clears entries and counts; flushes the record file", RunRecord},
    {"wait", "N MS [FILTER]", "answers once N such entries are on record; error after MS", RunWait},
    {"violations", "[clear]", "number of protocol violations, and the last one", RunViolations},
    {"help", "", "this list on one line", RunHelp},
    {"quit", "", "stops the simulator", RunQuit},
};

CommandResult RunHelp(Context*) { return Ok(ListCommands<Context>(kCommands)); }

}  // namespace

std::string Commands::Help() { return DescribeCommands<Context>(kCommands); }

CommandResult Commands::Run(std::string_view line) {
    try {
        Context context = {simulator_, std::nullopt, SkipBlanks(line)};
        context.named = TakeMark(&context.rest, '@');
        if (context.named && *context.named >= simulator_->Count()) {
            throw UsageError("no dongle @" + std::to_string(context.Index()));
        }
        const std::string_view name = TakeWord(&context.rest);
        if (const auto* row = FindCommand<Context>(kCommands, name)) return row->Run(&context);
        throw UsageError("unknown command \"" + std::string(name) + "\", try help");
    } catch (const UsageError& error) {
        return {std::string("error: ") + error.what(), {}};
    }
}

}  // namespace brennix
