#include "relay/relay_commands.h"

#include <nlohmann/json.hpp>

#include "control/command_table.h"
#include "control/words.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix {

namespace {

using OrderedJson = nlohmann::ordered_json;

struct Context {
    Relay* relay;
    std::optional<std::size_t> client;  // "#N" before the command
    std::optional<std::size_t> dongle;  // "@N"
    std::string_view rest;

    // The named client, or all.
    std::vector<Client*> Clients() const {
        if (!client) return relay->Clients();
        Client* const one = relay->Find(*client);
        if (one == nullptr) throw UsageError("no client #" + std::to_string(*client));
        return {one};
    }
    // The named client, or all, as far as they have identified themselves.
    std::vector<Client*> Identified() const {
        std::vector<Client*> list = Clients();
        std::erase_if(list, [](const Client* one) { return !one->IsIdentified(); });
        return list;
    }
};

CommandResult Count(std::size_t count) { return Ok(std::to_string(count)); }

CommandResult RunClients(Context* context) {
    OrderedJson list = OrderedJson::array();
    for (const Client* client : context->Clients()) {
        const auto count = [&](Direction direction) {
            return context->relay->Log().Count({client->Number(), direction, std::nullopt});
        };
        list.push_back(
            {{"client", client->Number()},
             {"carrier", CarrierName(client->Kind())},
             {"address", client->Peer()},
             {"device", client->DeviceId()},
             {"status", client->Status()},
             {"user", client->User()},
             {"dongle", client->Dongle() ? OrderedJson(*client->Dongle()) : OrderedJson()},
             {"received", count(Direction::kIn)},
             {"sent", count(Direction::kOut)},
             {"violations", client->Violations()}});
    }
    return Ok(list.dump());
}

CommandResult RunStats(Context* context) {
    OrderedJson dongles = OrderedJson::array();
    Simulator& simulator = context->relay->Dongles();
    for (std::size_t i = 0; i < simulator.Count(); ++i) {
        const Identity& identity = simulator.At(i).Setup().identity;
        dongles.push_back({{"dongle", i},
                           {"mac", ToHex(identity.mac)},
                           {"name", identity.name},
                           {"here", simulator.At(i).IsPowered()},
                           {"in_flight", simulator.At(i).InFlight()}});
    }
    const OrderedJson state = {{"clients", context->relay->Clients().size()},
                               {"connections", context->relay->Connections()},
                               {"dongles", dongles},
                               {"violations", context->relay->Violations()}};
    return Ok(state.dump());
}

bool TakeSwitch(std::string_view* rest) {
    const std::string_view word = TakeWord(rest);
    if (word != "on" && word != "off") throw UsageError("expected on or off");
    return word == "on";
}

CommandResult RunListen(Context* context) {
    const bool on = TakeSwitch(&context->rest);
    const std::string_view which = TakeWord(&context->rest);
    std::size_t count = 0;
    for (const Carrier carrier : {Carrier::kTcp, Carrier::kWebSocket, Carrier::kSecureWebSocket}) {
        Listener* const port = context->relay->Port(carrier);
        if (port == nullptr || (!which.empty() && which != CarrierName(carrier))) continue;
        port->Switch(on);
        ++count;
    }
    if (which == "proxy" && context->relay->Proxy() != nullptr) {
        context->relay->Proxy()->Port().Switch(on);
        ++count;
    }
    if (count == 0) throw UsageError("no such port");
    return Count(count);
}

CommandResult RunKill(Context* context) {
    const std::string_view how = TakeWord(&context->rest);
    if (!how.empty() && how != "reset") throw UsageError("expected reset or nothing");
    const std::vector<Client*> clients = context->Clients();
    for (Client* client : clients) {
        if (how == "reset") {
            client->Reset();
        } else {
            client->Close();
        }
    }
    return Count(clients.size());
}

CommandResult RunReading(Context* context) {
    const bool on = TakeSwitch(&context->rest);
    for (Client* client : context->Clients())
        client->SetReading(on);
    return Ok();
}

CommandResult RunStatus(Context* context) {
    RelaySettings& settings = context->relay->Settings();
    const std::uint32_t status = TakeNumber(&context->rest, "a status");
    const std::string device(TakeWord(&context->rest));
    if (device.empty()) {
        settings.status = status;
    } else {
        settings.device_status[device] = status;
    }
    return Ok();
}

CommandResult RunCapabilities(Context* context) {
    context->relay->Settings().capabilities = TakeNumber(&context->rest, "a bit mask");
    return Ok();
}

CommandResult RunWelcome(Context* context) {
    context->relay->Settings().welcome = TakeHex(&context->rest);
    return Ok();
}

CommandResult RunFault(Context* context) {
    FaultScript& faults = context->relay->Faults();
    if (context->rest == "clear") {
        faults.Clear();
    } else {
        faults.Add(context->rest);
    }
    return Ok(faults.Describe());
}

CommandResult RunPacket(Context* context) {
    const std::uint32_t type = TakeType(&context->rest);
    const Bytes packet = MakePacket(type, TakeHex(&context->rest));
    const std::vector<Client*> clients = context->Identified();
    for (Client* client : clients)
        client->SendPacket(packet);
    return Count(clients.size());
}

CommandResult RunPlain(Context* context) {
    const std::uint32_t type = TakeType(&context->rest);
    const Bytes packet = MakePacket(type, TakeHex(&context->rest));
    const std::vector<Client*> clients = context->Clients();
    for (Client* client : clients)
        client->SendPacket(packet, false);
    return Count(clients.size());
}

CommandResult RunBytes(Context* context) {
    const Bytes bytes = TakeHex(&context->rest);
    const std::vector<Client*> clients = context->Clients();
    for (Client* client : clients)
        client->SendBytes(bytes);
    return Count(clients.size());
}

CommandResult RunPing(Context* context) {
    const Bytes payload = TakeHex(&context->rest);
    const std::vector<Client*> clients = context->Identified();
    for (Client* client : clients)
        client->SendPing(payload);
    return Count(clients.size());
}

CommandResult RunText(Context* context) {
    const std::vector<Client*> clients = context->Clients();
    for (Client* client : clients)
        client->SendText(context->rest);
    return Count(clients.size());
}

CommandResult RunWebSocket(Context* context) {
    const std::string_view what = TakeWord(&context->rest);
    const std::vector<Client*> clients = context->Clients();
    if (what == "ping") {
        const Bytes payload = TakeHex(&context->rest);
        if (payload.size() > 125) throw UsageError("a WebSocket ping holds at most 125 bytes");
        for (Client* client : clients)
            client->SendWebSocketPing(payload);
    } else if (what == "close") {
        const std::uint32_t code =
            context->rest.empty() ? 1000 : TakeNumber(&context->rest, "a code");
        for (Client* client : clients)
            client->SendWebSocketClose(static_cast<std::uint16_t>(code));
    } else {
        throw UsageError("expected ping or close");
    }
    return Count(clients.size());
}

CommandResult RunLogin(Context* context) {
    const std::size_t dongle = context->dongle.value_or(0);
    if (dongle >= context->relay->Dongles().Count()) throw UsageError("no such dongle");
    const std::uint32_t type = context->rest.empty() ? type::kLogn : TakeType(&context->rest);
    const std::vector<Client*> clients = context->Identified();
    for (Client* client : clients)
        context->relay->SendLogin(dongle, type, client);
    return Count(clients.size());
}

CommandResult RunAdd(Context* context) {
    return Count(context->relay->AddDongle(LoadVehicleFile(std::string(context->rest))));
}

CommandResult RunProxy(Context* context) {
    ConnectProxy* const proxy = context->relay->Proxy();
    if (proxy == nullptr) throw UsageError("there is none, start with --proxy-port");
    const std::string_view what = TakeWord(&context->rest);
    if (what == "refuse") {
        proxy->RefuseWith(TakeNumber(&context->rest, "an HTTP status, or 0"));
    } else if (what == "map") {
        const std::string name(TakeWord(&context->rest));
        proxy->Map(name, std::string(TakeWord(&context->rest)));
    } else if (what == "kill") {
        proxy->KillAll();
    } else if (!what.empty()) {
        throw UsageError("expected refuse, map, kill or nothing");
    }
    const OrderedJson state = {{"requests", proxy->Requests()}, {"tunnels", proxy->OpenTunnels()}};
    return Ok(state.dump());
}

CommandResult RunRecord(Context* context) {
    return RunRecordCommand(&context->relay->Log(), context->client, context->rest);
}

CommandResult RunWait(Context* context) { return RunWaitCommand(context->client, context->rest); }

CommandResult RunViolations(Context* context) {
    const std::uint64_t count = context->relay->Violations();
    const std::string last = context->relay->LastViolation();
    if (TakeWord(&context->rest) == "clear") context->relay->ClearViolations();
    return Ok(std::to_string(count) + (last.empty() ? "" : " " + last));
}

// Back to the defaults, without the command line's settings.
CommandResult RunReset(Context* context) {
    Simulator& simulator = context->relay->Dongles();
    for (std::size_t i = 0; i < simulator.Count(); ++i) {
        simulator.Reset(i);
        simulator.Plug(i, Part::kAll);
    }
    context->relay->Faults().Clear();
    context->relay->Settings().status = 0;
    context->relay->Settings().device_status.clear();
    for (const Carrier carrier : {Carrier::kTcp, Carrier::kWebSocket, Carrier::kSecureWebSocket}) {
        if (Listener* port = context->relay->Port(carrier)) port->Switch(true);
    }
    if (ConnectProxy* proxy = context->relay->Proxy()) {
        proxy->RefuseWith(0);
        proxy->Port().Switch(true);
    }
    return Ok();
}

CommandResult RunQuit(Context* context) {
    context->relay->Loop().Stop();
    return Ok();
}

CommandResult RunHelp(Context*);

constexpr CommandRow<Context> kCommands[] = {
    {"stats", "", "counts and dongles as JSON", RunStats},
    {"clients", "", "connected clients as JSON", RunClients},
    {"listen", "on|off [tcp|ws|wss|proxy]", "accepts or refuses connections on the ports",
     RunListen},
    {"kill", "[reset]", "closes connections, or resets them", RunKill},
    {"reading", "on|off", "reads or does not read from clients", RunReading},
    {"fault", "[RULE; RULE]", "adds faults; lists the current ones", RunFault},
    {"fault", "clear", "removes all faults", RunFault},
    {"status", "N [DEVICE]", "sets the status in DEVA, for all devices or one", RunStatus},
    {"capabilities", "N", "sets the capabilities in DEVA", RunCapabilities},
    {"welcome", "HEX", "sets the welcome of later handshakes", RunWelcome},
    {"packet", "TYPE [HEX]", "sends a packet, sealed", RunPacket},
    {"plain", "TYPE [HEX]", "sends a packet unsealed", RunPlain},
    {"bytes", "HEX", "sends these bytes as they are", RunBytes},
    {"ping", "[HEX]", "sends PING and checks its REPL", RunPing},
    {"login", "[TYPE]", "sends a dongle's login again, as LOGN or LOGC", RunLogin},
    {"text", "TEXT", "sends a WebSocket text message", RunText},
    {"websocket", "ping [HEX]", "sends a WebSocket ping", RunWebSocket},
    {"websocket", "close [CODE]", "sends a WebSocket close", RunWebSocket},
    {"add", "FILE", "adds a dongle with this vehicle; answers its number", RunAdd},
    {"proxy", "", "requests so far and open tunnels, as JSON", RunProxy},
    {"proxy", "refuse STATUS", "answers proxy requests with this HTTP status; 0 stops it",
     RunProxy},
    {"proxy", "map NAME:PORT TARGET", "sends connections to this name to TARGET", RunProxy},
    {"proxy", "kill", "resets all connections through the proxy", RunProxy},
    {"record", "count|last N|clear|flush [FILTER]", "packets and events of clients", RunRecord},
    {"wait", "N MS [FILTER]", "waits until N entries are on record, at most MS", RunWait},
    {"violations", "[clear]", "number of protocol violations, and the last one", RunViolations},
    {"reset", "", "no faults, dongles as in their files, ports open, status 0", RunReset},
    {"help", "", "this list on one line", RunHelp},
    {"quit", "", "stops the relay", RunQuit},
};

CommandResult RunHelp(Context*) { return Ok(ListCommands<Context>(kCommands)); }

}  // namespace

std::string RelayCommands::Help() { return DescribeCommands<Context>(kCommands); }

CommandResult RelayCommands::Run(std::string_view line) {
    try {
        Context context = {relay_, {}, {}, SkipBlanks(line)};
        context.client = TakeMark(&context.rest, '#');
        context.dongle = TakeMark(&context.rest, '@');
        const std::string_view name = TakeWord(&context.rest);
        const auto* row = FindCommand<Context>(kCommands, name);
        return row != nullptr ? row->Run(&context) : dongles_.Run(line);
    } catch (const UsageError& error) {
        return {std::string("error: ") + error.what(), {}};
    }
}

}  // namespace brennix
