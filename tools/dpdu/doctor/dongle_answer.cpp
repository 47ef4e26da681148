#include "doctor/dongle_answer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "doctor/surroundings.h"
#include "support/temp_folder.h"
#include "text/names.h"
#include "transport/serial/serial_port.h"

namespace dpdu {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::array<char, 8> kSync = {'C', 'N', 'Y', 'S', 8, 0, 0, 0};
constexpr std::chrono::milliseconds kAskFor{2000};
constexpr std::chrono::milliseconds kAnswerTime{100};
constexpr std::int32_t kWriteMs = 500;

struct Close {
    void operator()(tarvik::PortHandle* port) const { tarvik::ClosePort(port); }
    void operator()(tarvik::PortTransfer* transfer) const { tarvik::CloseTransfer(transfer); }
};
using Port = std::unique_ptr<tarvik::PortHandle, Close>;
using Transfer = std::unique_ptr<tarvik::PortTransfer, Close>;

// Adds what arrives by the deadline, until it contains a SYNC. False: the port is gone.
bool Listen(tarvik::PortTransfer* transfer, Clock::time_point deadline, std::string* received) {
    while (received->find(kSync.data(), 0, kSync.size()) == received->npos) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return true;
        std::uint32_t queued = 0;
        if (!tarvik::WaitForData(transfer, static_cast<std::int32_t>(left.count())) ||
            !tarvik::QueuedBytes(transfer, &queued)) {
            return false;
        }
        if (queued == 0) continue;
        std::string bytes(queued, '\0');
        const tarvik::TransferOutcome outcome = tarvik::ReadPort(transfer, bytes.data(), queued);
        if (outcome.step != tarvik::TransferStep::kDone) return false;
        received->append(bytes, 0, outcome.bytes);
    }
    return true;
}

bool AnswersSync(tarvik::PortTransfer* receive, tarvik::PortTransfer* transmit) {
    std::string received;
    for (const auto end = Clock::now() + kAskFor; Clock::now() < end;) {
        tarvik::WritePort(transmit, kSync.data(), kSync.size(), kWriteMs);
        if (!Listen(receive, Clock::now() + kAnswerTime, &received)) return false;
        if (received.find(kSync.data(), 0, kSync.size()) != received.npos) return true;
    }
    return false;
}

// The newest first.
std::vector<fs::path> DebugLogs() {
    std::vector<std::pair<fs::file_time_type, fs::path>> logs;
    char folder[tarvik::kMaxPath];
    std::error_code error;
    for (fs::directory_iterator at(PathOf(tarvik::TempFolder(folder)), error), end;
         !error && at != end; at.increment(error)) {
        const std::string name = TextOf(at->path().filename());
        if (!name.starts_with("dpdu_debug_") || !name.ends_with(".log")) continue;
        std::error_code gone;
        const fs::file_time_type written = at->last_write_time(gone);
        if (!gone) logs.emplace_back(written, at->path());
    }
    std::sort(logs.rbegin(), logs.rend());
    std::vector<fs::path> paths;
    for (const auto& [written, path] : logs)
        paths.push_back(path);
    return paths;
}

enum class LastWord : std::uint8_t { kNone, kSilence, kOther };

LastWord LastWordOnPort(const fs::path& log, std::int32_t port_number) {
    const std::string number = std::to_string(port_number);
    const std::string silence =
        "[ConnectSerialPort] COM" + number + ": No response from device. Closing again.";
    const std::string attempt = "[ConnectSerialPort] Initialized CRITICAL_SECTION for Queues at ";
    const std::string departure =
        "[SerialConnect]   COM" + number + " got disconnected, set to unused";
    LastWord word = LastWord::kNone;
    std::ifstream file(log, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (line.find(silence) != line.npos) word = LastWord::kSilence;
        const bool is_attempt =
            line.find(attempt) != line.npos && line.find("(port " + number + ")") != line.npos;
        if (is_attempt || line.find(departure) != line.npos) word = LastWord::kOther;
    }
    return word;
}

}  // namespace

DongleAnswer AskDongle(const char* path) {
    const Port port(tarvik::OpenPort(path));
    if (!port) return DongleAnswer::kNotOpened;
    const Transfer receive(tarvik::CreateTransfer(port.get(), tarvik::TransferKind::kReceive));
    const Transfer transmit(tarvik::CreateTransfer(port.get(), tarvik::TransferKind::kTransmit));
    if (!receive || !transmit) return DongleAnswer::kNotOpened;
    return AnswersSync(receive.get(), transmit.get()) ? DongleAnswer::kAnswers
                                                      : DongleAnswer::kSilent;
}

std::string LogOfSilence(std::int32_t port_number) {
    for (const fs::path& log : DebugLogs()) {
        const LastWord word = LastWordOnPort(log, port_number);
        if (word == LastWord::kSilence) return TextOf(log);
        if (word == LastWord::kOther) return "";
    }
    return "";
}

Finding AnswerFinding(const std::string& path, DongleAnswer answer, const std::string& log) {
    switch (answer) {
        case DongleAnswer::kNotOpened:
            return {Verdict::kNote, kPortsSubject,
                    "the port of the dongle on " + path + " is in use",
                    "close the other program, unless it is the one that is to use the dongle"};
        case DongleAnswer::kSilent:
            return {Verdict::kWrong, kPortsSubject, "the dongle on " + path + " does not answer",
                    "wait until its LED is on and start the application then; if it stays silent, "
                    "plug it in again"};
        case DongleAnswer::kAnswers:
            break;
    }
    if (log.empty()) return {Verdict::kFine, kPortsSubject, "a dongle on " + path};
    return {Verdict::kNote, kPortsSubject,
            "the dongle on " + path + " answers, but did not when an application asked it (" + log +
                ")",
            "start the application, or construct again, when the dongle's LED is on"};
}

}  // namespace dpdu
