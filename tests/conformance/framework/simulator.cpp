#include "conformance/framework/simulator.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr int kAnswerMs = 30'000;
constexpr int kWaitMs = 15'000;  // of a wait in the simulator

}  // namespace

bool Simulator::IsThere() { return std::getenv("BRENNIX_SIM_CONTROL") != nullptr; }

bool Simulator::Connect() {
    if (connection_.IsOpen()) return true;
    const char* const value = std::getenv(variable_);  // "127.0.0.1:PORT"
    if (value == nullptr) return false;
    const std::string address = value;
    const std::size_t colon = address.rfind(':');
    if (colon == std::string::npos) return false;
    return connection_.Open(static_cast<std::uint16_t>(std::stoul(address.substr(colon + 1))));
}

bool Simulator::ReadLine(std::string* line) {
    std::size_t end = 0;
    while ((end = received_.find('\n')) == std::string::npos) {
        if (!connection_.Receive(&received_, kAnswerMs)) return false;
    }
    *line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return true;
}

std::string Simulator::Command(const std::string& line) {
    std::string answer;
    if (!Connect() || !connection_.Send(line + "\n") || !ReadLine(&answer)) {
        ADD_FAILURE() << "no answer of the simulator to '" << line << "'";
        return "";
    }
    if (answer != "ok" && answer.compare(0, 3, "ok ") != 0) {
        ADD_FAILURE() << "'" << line << "': " << answer;
        return "";
    }
    return answer.size() > 3 ? answer.substr(3) : "";
}

void Simulator::Reset() {
    Command("reset");
    Command("replug");
    Command("violations clear");
    Command("record clear");
}

void Simulator::AnswerRequest(std::uint32_t request_id, const std::vector<std::uint8_t>& data) {
    std::string payload;
    const auto append = [&payload](std::uint32_t value, int bytes) {
        char digits[4];
        for (; bytes > 0; --bytes, value >>= 8) {
            std::snprintf(digits, sizeof digits, "%02X", value & 0xFFu);
            payload += digits;
        }
    };
    append(0, 4);  // the time it took
    append(static_cast<std::uint32_t>(data.size()), 4);
    append(request_id, 4);
    for (const std::uint8_t byte : data)
        append(byte, 1);
    Command("packet CRES " + payload);
}

std::uint64_t Simulator::Count(const std::string& filter) {
    const std::string answer = Command("record count " + filter);
    return answer.empty() ? 0 : std::stoull(answer);
}

bool Simulator::WaitFor(std::uint64_t count, const std::string& filter) {
    std::string answer;
    const std::string line =
        "wait " + std::to_string(count) + " " + std::to_string(kWaitMs) + " " + filter;
    if (!Connect() || !connection_.Send(line + "\n") || !ReadLine(&answer)) return false;
    return answer.compare(0, 2, "ok") == 0;
}

nlohmann::json Simulator::Last(std::uint64_t count, const std::string& filter) {
    const std::string answer = Command("record last " + std::to_string(count) + " " + filter);
    return answer.empty() ? nlohmann::json::array() : nlohmann::json::parse(answer);
}

nlohmann::json Simulator::LastRequest() {
    const nlohmann::json entries = Last(1, "in CREQ");
    return entries.empty() ? nlohmann::json::object() : entries[0]["fields"];
}

std::uint64_t Simulator::Violations() {
    const std::string answer = Command("violations");
    return answer.empty() ? 0 : std::stoull(answer);
}

}  // namespace conformance
