#include "vehicle_file/raw_file.h"

#include <algorithm>
#include <set>

#include "vehicle_file/json_reader.h"

namespace brennix {

namespace {

using Json = nlohmann::json;

Bytes ReadFrameBytes(const Json& value, const std::string& path) {
    Bytes bytes = ReadHexBytes(value, path);
    if (bytes.size() > kMaxFrameBytes) {
        throw JsonError(path + ": expected at most 8 bytes, found " + std::to_string(bytes.size()));
    }
    return bytes;
}

std::uint32_t RequireId(const JsonObject& object) {
    object.Require("id", "a CAN id, as hex text");
    return *object.HexNumber("id", kMaxCanId);
}

// One text, or several sent in turn.
std::vector<Bytes> ReadFrameData(const JsonObject& object) {
    std::vector<Bytes> data;
    if (const Json* found = object.Find("data"); found != nullptr && !found->is_array()) {
        data.push_back(ReadFrameBytes(*found, object.PathOf("data")));
    } else {
        object.ForEach("data", [&](const Json& bytes, const std::string& at) {
            data.push_back(ReadFrameBytes(bytes, at));
        });
    }
    if (data.empty()) data.emplace_back();
    return data;
}

RawAnswer::Reply ReadReply(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"id", "data", "delay_ms"});
    RawAnswer::Reply reply;
    reply.frame.id = RequireId(object);
    if (const Json* data = object.Find("data")) {
        reply.frame.data = ReadFrameBytes(*data, object.PathOf("data"));
    }
    reply.delay_ms = object.Number("delay_ms", 0, kMaxMs).value_or(0);
    return reply;
}

TimedFrame ReadTimedFrame(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"at_ms", "id", "data"});
    TimedFrame frame;
    object.Require("at_ms", "milliseconds after reception was switched on");
    frame.at_ms = *object.Number("at_ms", 0, kMaxMs);
    frame.frame.id = RequireId(object);
    if (const Json* data = object.Find("data")) {
        frame.frame.data = ReadFrameBytes(*data, object.PathOf("data"));
    }
    return frame;
}

bool ReadReceptionMode(const JsonObject& object) {
    const Json* found = object.Find("reception");
    if (found == nullptr || *found == "counted") return true;
    if (*found == "switched") return false;
    ThrowExpected(object.PathOf("reception"), R"("counted" or "switched")", *found);
}

}  // namespace

PeriodicFrame ReadPeriodicFrame(const Json& value, const std::string& path) {
    const JsonObject object(
        value, path, {"name", "id", "data", "period_ms", "start_ms", "counter", "permanent"});
    PeriodicFrame frame;
    object.Require("name", "the frame's name");
    frame.name = ReadName(object);
    frame.id = RequireId(object);
    frame.data = ReadFrameData(object);
    frame.period_ms = object.Number("period_ms", 0, kMaxMs).value_or(frame.period_ms);
    frame.start_ms = object.Number("start_ms", 0, kMaxMs).value_or(0);
    frame.permanent = object.Flag("permanent").value_or(false);
    frame.counter = object.Number("counter", 0, kMaxFrameBytes - 1);
    const auto has_counter = [&](const Bytes& bytes) { return *frame.counter < bytes.size(); };
    if (frame.counter && !std::all_of(frame.data.begin(), frame.data.end(), has_counter)) {
        throw JsonError(object.PathOf("counter") + ": the data have no byte " +
                        std::to_string(*frame.counter) + ", bytes are counted from 0");
    }
    return frame;
}

RawAnswer ReadRawAnswer(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"id", "id_mask", "data", "frames"});
    RawAnswer answer;
    answer.id = RequireId(object);
    answer.id_mask = object.HexNumber("id_mask", kMaxCanId).value_or(kMaxCanId);
    answer.data = object.Find("data") != nullptr
                      ? ReadPattern(*object.Find("data"), object.PathOf("data"))
                      : BytePattern::Parse("*").value();
    object.Require("frames", "the frames that answer");
    object.ForEach("frames", [&](const Json& reply, const std::string& at) {
        answer.replies.push_back(ReadReply(reply, at));
    });
    return answer;
}

RawSetup ReadRawSetup(const Json& value, const std::string& path) {
    const JsonObject object(value, path, {"reception", "frames", "answers", "sequence"});
    RawSetup setup;
    setup.counts_listeners = ReadReceptionMode(object);
    std::set<std::string> names;
    object.ForEach("frames", [&](const Json& frame, const std::string& at) {
        setup.frames.push_back(ReadPeriodicFrame(frame, at));
        if (!names.insert(setup.frames.back().name).second) {
            throw JsonError(at + ".name: \"" + setup.frames.back().name +
                            "\" is the name of another frame");
        }
    });
    object.ForEach("answers", [&](const Json& answer, const std::string& at) {
        setup.answers.push_back(ReadRawAnswer(answer, at));
    });
    object.ForEach("sequence", [&](const Json& frame, const std::string& at) {
        setup.sequence.push_back(ReadTimedFrame(frame, at));
    });
    return setup;
}

}  // namespace brennix
