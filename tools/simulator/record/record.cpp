#include "record/record.h"

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "protocol/describe.h"

namespace brennix {

namespace {

const char* DirectionName(Direction direction) {
    switch (direction) {
        case Direction::kIn:
            return "in";
        case Direction::kOut:
            return "out";
        case Direction::kEvent:
            return "event";
        case Direction::kViolation:
            return "violation";
    }
    return "";
}

nlohmann::ordered_json ToJson(const RecordEntry& entry, const char* source) {
    const auto microseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(entry.time.time_since_epoch());
    nlohmann::ordered_json json;
    json["number"] = entry.number;
    json["time_us"] = microseconds.count();  // since 1970, UTC
    json[source] = entry.dongle;
    json["direction"] = DirectionName(entry.direction);
    if (entry.packet.empty()) {
        json["text"] = entry.text;
        return json;
    }
    json["type"] = TypeName(PacketType(entry.packet));
    json["length"] = entry.packet.size();
    json["fields"] = DescribePacket(entry.packet);
    json["hex"] = ToHex(entry.packet);
    return json;
}

// Text from the wire may hold any bytes; invalid UTF-8 is replaced, not refused.
std::string Dump(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

bool Matches(const RecordEntry& entry, const RecordFilter& filter) {
    if (filter.dongle && entry.dongle != *filter.dongle) return false;
    if (filter.direction && entry.direction != *filter.direction) return false;
    if (!filter.type) return true;
    return !entry.packet.empty() && PacketType(entry.packet) == *filter.type;
}

}  // namespace

std::string ToJsonLine(const RecordEntry& entry, const char* source) {
    return Dump(ToJson(entry, source));
}

void Record::OpenFile(const std::string& path) {
    file_.reset(std::fopen(path.c_str(), "we"));
    if (!file_) throw std::system_error(errno, std::generic_category(), path);
}

void Record::FlushFile() {
    if (file_) std::fflush(file_.get());
}

void Record::AddPacket(std::size_t dongle, Direction direction, ByteSpan packet) {
    Add({0, {}, dongle, direction, Bytes(packet.begin(), packet.end()), {}}, PacketType(packet));
}

void Record::AddText(std::size_t dongle, Direction direction, std::string text) {
    Add({0, {}, dongle, direction, {}, std::move(text)}, 0);
}

void Record::Add(RecordEntry entry, std::uint32_t type) {
    entry.number = next_number_++;
    entry.time = std::chrono::system_clock::now();
    ++counts_[{entry.dongle, entry.direction, type}];
    if (file_) std::fprintf(file_.get(), "%s\n", ToJsonLine(entry, source_).c_str());
    if (keep_ != 0) {
        if (entries_.size() == keep_) entries_.pop_front();
        entries_.push_back(std::move(entry));
    }
    if (listener_) listener_();
}

void Record::Clear() {
    entries_.clear();
    counts_.clear();
}

// The counts of one dongle are adjacent: a relay keeps those of every connection since its start.
std::uint64_t Record::Count(const RecordFilter& filter) const {
    auto at =
        filter.dongle ? counts_.lower_bound({*filter.dongle, Direction::kIn, 0}) : counts_.begin();
    std::uint64_t sum = 0;
    for (; at != counts_.end(); ++at) {
        const auto& [key, count] = *at;
        if (filter.dongle && key.dongle != *filter.dongle) break;
        if (filter.direction && key.direction != *filter.direction) continue;
        if (filter.type && key.type != *filter.type) continue;
        sum += count;
    }
    return sum;
}

std::string Record::Last(std::size_t limit, const RecordFilter& filter) const {
    std::vector<const RecordEntry*> found;
    for (auto entry = entries_.rbegin(); entry != entries_.rend() && found.size() < limit;
         ++entry) {
        if (Matches(*entry, filter)) found.push_back(&*entry);
    }
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (auto entry = found.rbegin(); entry != found.rend(); ++entry)
        list.push_back(ToJson(**entry, source_));
    return Dump(list);
}

}  // namespace brennix
