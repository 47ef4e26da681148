#include "control/raw_commands.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "control/words.h"
#include "protocol/describe.h"
#include "vehicle_file/json_reader.h"
#include "vehicle_file/raw_file.h"

namespace brennix {

namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr std::uint32_t kMaxBurst = 1'000'000;

std::uint32_t TakeCanId(std::string_view* rest) {
    return ReadHexNumber(nlohmann::json(std::string(TakeWord(rest))), "CAN id", kMaxCanId);
}

std::string State(const RawTraffic& raw) {
    OrderedJson ids = OrderedJson::object();
    for (const auto& [id, counted] : raw.ReceivedIds()) {
        ids[CanIdText(id)] = {{"count", counted.count}, {"last", ToHex(counted.last)}};
    }
    const OrderedJson state = {{"listeners", raw.Listeners()},
                               {"sent", raw.Sent()},
                               {"received", raw.ReceivedCount()},
                               {"ids", std::move(ids)}};
    return state.dump();
}

// Times are milliseconds after the first frame of the list.
std::string ListReceived(const RawTraffic& raw, std::uint32_t limit) {
    const auto& frames = raw.LastReceived();
    const std::size_t first = frames.size() - std::min<std::size_t>(limit, frames.size());
    OrderedJson list = OrderedJson::array();
    for (std::size_t i = first; i < frames.size(); ++i) {
        const std::chrono::duration<double, std::milli> at = frames[i].time - frames[first].time;
        list.push_back({{"at_ms", at.count()},
                        {"id", CanIdText(frames[i].frame.id)},
                        {"data", ToHex(frames[i].frame.data)}});
    }
    return list.dump();
}

std::string SendFrame(RawTraffic* raw, std::string_view rest) {
    RawFrame frame;
    frame.id = TakeCanId(&rest);
    frame.data = TakeHex(&rest);
    if (frame.data.size() > kMaxFrameBytes) throw UsageError("expected at most 8 bytes");
    return raw->Send(frame) ? "1" : "0";
}

std::string SendBurst(RawTraffic* raw, std::string_view rest) {
    const std::uint32_t count = TakeNumber(&rest, "a number of frames");
    if (count == 0 || count > kMaxBurst) throw UsageError("expected 1 to 1000000 frames");
    const std::uint32_t id = TakeCanId(&rest);
    return raw->SendBurst(id, count) ? std::to_string(count) : "0";
}

void ChangeFrame(Dongle* dongle, std::string_view rest) {
    PeriodicFrame changed = ReadPeriodicFrame(ParseJson(std::string(rest), "frame"), "frame");
    std::vector<PeriodicFrame>& frames = dongle->Setup().raw.frames;
    const auto same = [&](const PeriodicFrame& frame) { return frame.name == changed.name; };
    const auto found = std::find_if(frames.begin(), frames.end(), same);
    if (found != frames.end()) {
        *found = std::move(changed);
    } else {
        frames.push_back(std::move(changed));
    }
    dongle->Raw().Restart();
}

void AddAnswer(Dongle* dongle, std::string_view rest) {
    std::vector<RawAnswer>& answers = dongle->Setup().raw.answers;
    answers.insert(answers.begin(),
                   ReadRawAnswer(ParseJson(std::string(rest), "answer"), "answer"));
}

}  // namespace

std::string RunRawCommand(Dongle* dongle, std::string_view rest) {
    RawTraffic& raw = dongle->Raw();
    const std::string_view what = TakeWord(&rest);
    if (what.empty()) return State(raw);
    if (what == "send") return SendFrame(&raw, rest);
    if (what == "burst") return SendBurst(&raw, rest);
    if (what == "received") return ListReceived(raw, TakeNumber(&rest, "a number of frames"));
    if (what == "clear") {
        raw.ClearReceived();
        return {};
    }
    if (what == "frame") {
        ChangeFrame(dongle, rest);
        return {};
    }
    if (what == "answer") {
        AddAnswer(dongle, rest);
        return {};
    }
    throw UsageError("expected send, burst, received, clear, frame, answer or nothing, found \"" +
                     std::string(what) + "\"");
}

}  // namespace brennix
