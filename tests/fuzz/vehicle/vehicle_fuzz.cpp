// A vehicle file for the simulator, and changes at run time in the same format. Accepted values are
// within the limits of their fields; anything else is rejected with one line.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "vehicle_file/json_reader.h"
#include "vehicle_file/vehicle_file.h"

using namespace brennix;

namespace {

constexpr const char* kFileName = "car.json";

void Require(bool holds) {
    if (!holds) std::abort();
}

bool IsPrintable(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char letter) {
        return (letter >= '\0' && letter < ' ') || letter == '\x7F';
    });
}

// A name must work as a word in control commands.
void TakeName(const std::string& name, std::set<std::string>* names) {
    Require(!name.empty() && IsPrintable(name) && name.find(' ') == std::string::npos);
    Require(names->insert(name).second);
}

void CheckUnits(const std::vector<ControlUnitSetup>& units) {
    std::set<std::string> names;
    for (const ControlUnitSetup& unit : units) {
        TakeName(unit.name, &names);
        Require(unit.request_id <= kMaxCanId && unit.response_id <= kMaxCanId);
        for (const std::uint32_t id : unit.functional_ids)
            Require(id <= kMaxCanId);
        Require(unit.session_timeout_ms >= 1 && unit.session_timeout_ms <= kMaxMs);
        Require(unit.sessions.empty() || unit.sessions.rbegin()->first <= 0x7F);
        for (const TroubleCode& code : unit.trouble_codes)
            Require(code.code <= 0xFFFFFF);
        for (const AnswerRow& row : unit.rows)
            Require(row.response.size() <= 0xFFFF);
    }
}

void CheckRaw(const RawSetup& raw) {
    std::set<std::string> names;
    for (const PeriodicFrame& frame : raw.frames) {
        TakeName(frame.name, &names);
        Require(frame.id <= kMaxCanId && !frame.data.empty());
        for (const Bytes& bytes : frame.data) {
            Require(bytes.size() <= kMaxFrameBytes);
            Require(!frame.counter || *frame.counter < bytes.size());
        }
    }
    for (const RawAnswer& answer : raw.answers) {
        for (const RawAnswer::Reply& reply : answer.replies)
            Require(reply.frame.id <= kMaxCanId && reply.frame.data.size() <= kMaxFrameBytes);
    }
    for (const TimedFrame& frame : raw.sequence)
        Require(frame.frame.id <= kMaxCanId && frame.frame.data.size() <= kMaxFrameBytes);
}

void CheckTimeline(const TimelineSetup& timeline) {
    Require(timeline.telemetry.period_ms <= kMaxMs);
    for (const TimelineEvent& event : timeline.events) {
        Require(event.at_ms <= kMaxMs);
        Require(event.ChangesPower() == event.packet.empty());
        if (event.packet.empty()) continue;
        Require(PacketType(event.packet) == type::kLog);
        Require(PacketLength(event.packet) == event.packet.size());
    }
}

void CheckIdentity(const Identity& identity) {
    Require(identity.name.size() <= 32 && identity.firmware.size() <= 32);
    Require(identity.build_time.size() <= 16 && identity.build_date.size() <= 16);
}

// True: accepted.
template <typename Read>
bool IsTaken(std::string_view begin, Read read) {
    try {
        read();
        return true;
    } catch (const JsonError& error) {
        Require(std::string_view(error.what()).starts_with(begin) && IsPrintable(error.what()));
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    IsTaken(std::string(kFileName) + ": ", [&] {
        const DongleSetup setup = ReadVehicle(text, kFileName);
        CheckIdentity(setup.identity);
        CheckUnits(setup.control_units);
        CheckRaw(setup.raw);
        CheckTimeline(setup.timeline);
    });
    IsTaken("behaviour", [&] { ReadBehaviourText(text); });
    DongleSetup changed;
    const bool is_changed = IsTaken("dongle", [&] { ChangeDongle(text, &changed); });
    CheckIdentity(changed.identity);
    const DongleSetup initial;
    if (!is_changed) {
        Require(changed.identity.mac == initial.identity.mac);
        Require(changed.identity.name == initial.identity.name);
        Require(changed.mute == initial.mute && changed.ignore.empty());
    }
    return 0;
}
