#include "radio/radio.h"

#include <algorithm>
#include <cstdio>

#include "control/words.h"

namespace brennix {

namespace {

constexpr std::size_t kLongestPacket = 244;
constexpr std::size_t kMtuOverhead = 3;
constexpr const char* kService = "59462f12-9543-9999-12c8-58b459a271ff";
constexpr const char* kCharacteristic = "34a242a7-5bc9-45d3-92e4-af6f9138ff00";
// The service of every device: Generic Access with the device's name.
constexpr const char* kAccessService = "00001800-0000-1000-8000-00805f9b34fb";
constexpr const char* kNameCharacteristic = "00002a00-0000-1000-8000-00805f9b34fb";

std::string StatusText(LinkStatus status) {
    return std::to_string(static_cast<std::uint32_t>(status));
}

std::string FirstBytes(ByteSpan bytes) {
    return ToHex(bytes.first(std::min<std::size_t>(bytes.size(), 32)));
}

}  // namespace

const char* AdapterName(AdapterState state) {
    switch (state) {
        case AdapterState::kOn:
            return "on";
        case AdapterState::kOff:
            return "off";
        case AdapterState::kAbsent:
            return "absent";
    }
    return "";
}

Radio::Radio(EventLoop* loop, std::size_t keep) : loop_(loop), dongles_(loop, keep) {}

Radio::~Radio() = default;

void Radio::Listen(std::uint16_t port) {
    listener_ =
        std::make_unique<Listener>(loop_, "127.0.0.1", port, [this](int fd) { Accept(fd); });
}

std::uint16_t Radio::Port() const {
    const std::string& address = listener_->Address();
    return static_cast<std::uint16_t>(std::stoul(address.substr(address.find(':') + 1)));
}

std::size_t Radio::AddDongle(DongleSetup setup) {
    const auto is_taken = [&](const auto& mac) {
        for (std::size_t i = 0; i < dongles_.Count(); ++i)
            if (dongles_.At(i).Setup().identity.mac == mac) return true;
        return false;
    };
    while (is_taken(setup.identity.mac))
        ++setup.identity.mac[5];
    airs_.emplace_back();
    Uplink* const uplink = this;
    const std::size_t index = dongles_.AddDongle(std::move(setup), uplink);
    dongles_.Plug(index, Part::kAll);
    return index;
}

void Radio::Change(std::size_t dongle, const RadioSettings& settings) {
    airs_[dongle].settings = settings;
    airs_[dongle].advertised_in_scan = 0;
    if (airs_[dongle].is_connecting) ScheduleConnect(dongle);
    ScheduleAdvertisement(dongle, 0);
}

void Radio::Reset() {
    SetAdapter(AdapterState::kOn);
    for (std::size_t i = 0; i < dongles_.Count(); ++i) {
        dongles_.Reset(i);
        dongles_.Plug(i, Part::kAll);
        Change(i, RadioSettings{});
    }
}

void Radio::SetAdapter(AdapterState state) {
    if (state == adapter_) return;
    adapter_ = state;
    Event(0, std::string("adapter ") + AdapterName(state));
    for (std::size_t i = 0; i < airs_.size(); ++i) {
        if (state != AdapterState::kOn) EndLink(i, "adapter " + std::string(AdapterName(state)));
    }
    for (const auto& [number, central] : centrals_) {
        central->scan = ScanMode::kOff;
        central->Send(std::string("adapter ") + AdapterName(state));
    }
}

bool Radio::Lose(std::size_t dongle) {
    if (airs_[dongle].link == 0) return false;
    EndLink(dongle, "lost on the way");
    return true;
}

bool Radio::Notify(std::size_t dongle, ByteSpan value) {
    Air& air = airs_[dongle];
    if (!air.subscribed) return false;
    air.central->Send("notify " + AddressOf(dongle) + " " + ToHex(value));
    return true;
}

Radio::LinkState Radio::State(std::size_t dongle) const {
    const Air& air = airs_[dongle];
    return {air.is_connecting, air.link != 0 && !air.is_connecting, air.subscribed, air.connections,
            air.advertised};
}

std::size_t Radio::Scanning() const {
    return static_cast<std::size_t>(
        std::count_if(centrals_.begin(), centrals_.end(),
                      [](const auto& entry) { return entry.second->scan != ScanMode::kOff; }));
}

void Radio::Accept(int fd) {
    const std::size_t number = ++last_central_;
    centrals_[number] = std::make_unique<Central>(
        loop_, number, fd,
        LineSocket::Handlers{
            .received =
                [this, number](std::string_view line) { OnLine(centrals_.at(number).get(), line); },
            .ended = [this, number] { OnLeft(number); }});
    Event(0, "computer " + std::to_string(number) + " is here");
    centrals_[number]->Send(std::string("adapter ") + AdapterName(adapter_));
}

// Its connections end with it; there is nobody left to notify.
void Radio::OnLeft(std::size_t number) {
    const std::string name = "computer " + std::to_string(number);
    for (std::size_t i = 0; i < airs_.size(); ++i) {
        Air& air = airs_[i];
        if (air.central == nullptr || air.central->number != number) continue;
        EndLink(i, name + " left");
    }
    Event(0, name + " left");
    // Deferred, since the central is still executing.
    loop_->After(std::chrono::milliseconds(0), [this, number] { centrals_.erase(number); });
}

void Radio::OnLine(Central* central, std::string_view line) {
    try {
        Obey(central, line);
    } catch (const UsageError& error) {
        dongles_.At(0).Violation("radio line \"" + std::string(line) + "\": " + error.what());
    }
}

void Radio::Obey(Central* central, std::string_view line) {
    std::string_view rest = line;
    const std::string_view command = TakeWord(&rest);
    if (command == "scan") return SetScan(central, TakeWord(&rest));
    if (command == "violation") return dongles_.At(0).Violation(std::string(rest));
    if (command == "note") return Event(0, std::string(rest));

    const std::string address(TakeWord(&rest));
    if (command == "connect") return Connect(central, address);
    const std::optional<std::size_t> dongle = FindDongle(address);
    if (!dongle) throw UsageError("no such dongle");
    if (command == "disconnect") return Disconnect(central, *dongle);
    if (command == "services") return ListServices(central, *dongle);
    if (command == "characteristics") return ListCharacteristics(central, *dongle, rest);
    if (command == "subscribe") return Subscribe(central, *dongle, true);
    if (command == "unsubscribe") return Subscribe(central, *dongle, false);
    if (command == "write") return Write(central, *dongle, TakeHex(&rest));
    throw UsageError("unknown");
}

void Radio::SetScan(Central* central, std::string_view mode) {
    if (mode != "on" && mode != "passive" && mode != "off") {
        throw UsageError("expected on, passive or off");
    }
    if (mode != "off" && adapter_ != AdapterState::kOn) {
        return central->Send(std::string("scanning refused ") + AdapterName(adapter_));
    }
    central->scan = mode == "on"        ? ScanMode::kActive
                    : mode == "passive" ? ScanMode::kPassive
                                        : ScanMode::kOff;
    Event(0, "scan " + std::string(mode));
    central->Send("scanning " + std::string(mode));
    if (central->scan == ScanMode::kOff) return;
    for (std::size_t i = 0; i < airs_.size(); ++i) {
        airs_[i].advertised_in_scan = 0;
        ScheduleAdvertisement(i, 0);
    }
}

bool Radio::Advertises(std::size_t dongle) const {
    const Air& air = airs_[dongle];
    if (adapter_ != AdapterState::kOn || !dongles_.At(dongle).IsPowered()) return false;
    if (air.link != 0 && !air.settings.advertises_connected) return false;
    const std::uint32_t most = air.settings.advertise_count;
    return Scanning() != 0 && (most == 0 || air.advertised_in_scan < most);
}

void Radio::ScheduleAdvertisement(std::size_t dongle, std::uint32_t after_ms) {
    Air& air = airs_[dongle];
    loop_->Cancel(air.advertise_timer);
    if (!Advertises(dongle)) return;
    air.advertise_timer = loop_->After(std::chrono::milliseconds(after_ms), [this, dongle] {
        if (Advertises(dongle)) Advertise(dongle);
        ScheduleAdvertisement(dongle, airs_[dongle].settings.interval_ms);
    });
}

void Radio::Advertise(std::size_t dongle) {
    Air& air = airs_[dongle];
    const RadioSettings& settings = air.settings;
    const std::string begin =
        "advertise " + AddressOf(dongle) + " " + std::to_string(settings.rssi) + " ";
    const std::string name = settings.name && !settings.name->empty() ? ToHex(*settings.name) : "-";
    ++air.advertised;
    ++air.advertised_in_scan;
    for (const auto& [number, central] : centrals_) {
        if (central->scan == ScanMode::kOff) continue;
        central->Send(begin + (settings.name_in_response ? "-" : name));
        if (settings.name_in_response && central->scan == ScanMode::kActive) {
            central->Send(begin + name);
        }
    }
}

void Radio::Connect(Central* central, const std::string& address) {
    const auto refuse = [&](const std::string& why) {
        central->Send("refused " + address + " " + why);
    };
    if (adapter_ != AdapterState::kOn)
        return refuse("the adapter is " + std::string(AdapterName(adapter_)));
    const std::optional<std::size_t> dongle = FindDongle(address);
    if (!dongle || !dongles_.At(*dongle).IsPowered()) return refuse("not reachable");
    Air& air = airs_[*dongle];
    if (air.link != 0) return refuse("it is connected already");
    air.link = ++last_link_;
    air.central = central;
    air.is_connecting = true;
    ScheduleConnect(*dongle);
}

void Radio::ScheduleConnect(std::size_t dongle) {
    Air& air = airs_[dongle];
    loop_->Cancel(air.connect_timer);
    air.connect_timer = loop_->After(std::chrono::milliseconds(air.settings.connect_ms),
                                     [this, dongle] { FinishConnect(dongle); });
}

void Radio::FinishConnect(std::size_t dongle) {
    Air& air = airs_[dongle];
    RadioSettings& settings = air.settings;
    air.is_connecting = false;
    if (!settings.refuse.empty()) {
        Central* const central = std::exchange(air.central, nullptr);
        air.link = 0;
        central->Send("refused " + AddressOf(dongle) + " " + settings.refuse);
        if (settings.refuse_count != 0 && --settings.refuse_count == 0) settings.refuse.clear();
        return ScheduleAdvertisement(dongle, settings.interval_ms);
    }
    ++air.connections;
    Event(dongle, "connected by computer " + std::to_string(air.central->number));
    air.central->Send("connected " + AddressOf(dongle) + " " + std::to_string(settings.mtu));
}

void Radio::Disconnect(Central* central, std::size_t dongle) {
    if (airs_[dongle].central == central) {
        airs_[dongle].central = nullptr;
        EndLink(dongle, "disconnected by computer " + std::to_string(central->number));
    }
    central->Send("disconnected " + AddressOf(dongle));
}

// Sends it to the connected computer, if there still is one.
void Radio::EndLink(std::size_t dongle, const std::string& why) {
    Air& air = airs_[dongle];
    if (air.link == 0) return;
    Central* const central = std::exchange(air.central, nullptr);
    const bool was_connecting = std::exchange(air.is_connecting, false);
    air.link = 0;
    air.subscribed = false;
    loop_->Cancel(air.connect_timer);
    dongles_.At(dongle).ForgetHost();
    Event(dongle, "connection ended: " + why);
    if (central != nullptr) {
        central->Send(was_connecting ? "refused " + AddressOf(dongle) + " " + why
                                     : "lost " + AddressOf(dongle));
    }
    ScheduleAdvertisement(dongle, air.settings.interval_ms);
}

bool Radio::IsLinked(const Central* central, std::size_t dongle, const char* what) {
    const Air& air = airs_[dongle];
    if (air.central == central && !air.is_connecting) return true;
    // The notice of the loss may not have arrived yet; a stand-in that knew of it reports the
    // violation.
    Event(dongle, std::string(what) + " without a connection");
    return false;
}

void Radio::ListServices(Central* central, std::size_t dongle) {
    const RadioSettings& settings = airs_[dongle].settings;
    const std::string begin = "services " + AddressOf(dongle) + " ";
    const LinkStatus status =
        IsLinked(central, dongle, "services") ? settings.services_status : LinkStatus::kUnreachable;
    if (status != LinkStatus::kSuccess) return central->Send(begin + StatusText(status));
    central->Send(begin + "0 " + kAccessService +
                  (settings.has_service ? std::string(",") + kService : ""));
}

void Radio::ListCharacteristics(Central* central, std::size_t dongle, std::string_view service) {
    const RadioSettings& settings = airs_[dongle].settings;
    const std::string begin =
        "characteristics " + AddressOf(dongle) + " " + std::string(service) + " ";
    const LinkStatus status = IsLinked(central, dongle, "characteristics")
                                  ? settings.characteristics_status
                                  : LinkStatus::kUnreachable;
    if (status != LinkStatus::kSuccess) return central->Send(begin + StatusText(status));
    const bool is_own = service == kService;
    central->Send(begin + "0 " +
                  (!is_own                       ? kNameCharacteristic
                   : settings.has_characteristic ? kCharacteristic
                                                 : "-"));
}

void Radio::Subscribe(Central* central, std::size_t dongle, bool on) {
    Air& air = airs_[dongle];
    const std::string begin =
        std::string(on ? "subscribed " : "unsubscribed ") + AddressOf(dongle) + " ";
    if (!IsLinked(central, dongle, on ? "subscribe" : "unsubscribe")) {
        return central->Send(begin + StatusText(LinkStatus::kUnreachable));
    }
    const LinkStatus status = on ? air.settings.subscribe_status : LinkStatus::kSuccess;
    if (on && air.subscribed) dongles_.At(dongle).Violation("subscribed twice");
    if (status == LinkStatus::kSuccess) air.subscribed = on;
    central->Send(begin + StatusText(status));
}

void Radio::Write(Central* central, std::size_t dongle, ByteSpan value) {
    Air& air = airs_[dongle];
    Dongle& target = dongles_.At(dongle);
    LinkStatus status = air.settings.write_status;
    if (!IsLinked(central, dongle, "write")) {
        status = LinkStatus::kUnreachable;
    } else if (value.size() > air.settings.mtu - kMtuOverhead) {
        Event(dongle, "a write of " + std::to_string(value.size()) + " bytes does not fit the MTU");
        status = LinkStatus::kProtocolError;
    }
    // The answer first, so that the dongle's reaction to the packet follows it.
    central->Send("written " + AddressOf(dongle) + " " + StatusText(status));
    if (status != LinkStatus::kSuccess) return;
    if (value.size() > kLongestPacket) {
        target.Violation("a write of " + std::to_string(value.size()) + " bytes");
    }
    if (value.size() < kHeaderSize || PacketLength(value) != value.size()) {
        return target.Violation("a write that is not one packet: " + FirstBytes(value));
    }
    target.Receive(value, air.link);
}

// Answers to an earlier connection's requests, and packets without a listener, are lost.
void Radio::FromDongle(std::size_t dongle, std::uint64_t asker, ByteSpan packet) {
    const bool is_late = asker != 0 && asker != airs_[dongle].link;
    if (is_late || !Notify(dongle, packet)) {
        Event(dongle, TypeName(PacketType(packet)) + " lost, nobody has subscribed");
    }
}

void Radio::PowerChanged(std::size_t dongle, bool powered) {
    if (!powered) EndLink(dongle, "the dongle is gone");
    ScheduleAdvertisement(dongle, 0);
}

std::size_t Radio::LongestPacket(std::size_t dongle) const {
    return std::min<std::size_t>(kLongestPacket, airs_[dongle].settings.mtu - kMtuOverhead);
}

std::string Radio::AddressOf(std::size_t dongle) const {
    std::string text;
    for (const std::uint8_t byte : dongles_.At(dongle).Setup().identity.mac) {
        text += (text.empty() ? "" : ":") + ToHex({&byte, 1});
    }
    return text;
}

std::optional<std::size_t> Radio::FindDongle(std::string_view address) const {
    for (std::size_t i = 0; i < airs_.size(); ++i)
        if (AddressOf(i) == address) return i;
    return std::nullopt;
}

void Radio::Event(std::size_t dongle, const std::string& text) {
    dongles_.Log().AddText(dongle, Direction::kEvent, text);
}

}  // namespace brennix
