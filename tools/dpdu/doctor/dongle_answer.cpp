#include "doctor/dongle_answer.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <system_error>
#include <vector>

#include "console/output.h"
#include "doctor/access.h"
#include "doctor/diagnoses.h"
#include "link/wire_packets.h"
#include "objects/module_scan.h"
#include "platform/thread.h"
#include "text/names.h"
#include "trace/trace_files.h"
#include "transport/identification.h"
#include "transport/serial/serial_port.h"
#include "transport/serial/serial_stream.h"

namespace dpdu {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kSyncTime{2000};
constexpr std::chrono::milliseconds kSyncPause{100};
constexpr std::chrono::milliseconds kLoginTime{1000};
constexpr std::chrono::milliseconds kLoginPause{50};
constexpr std::int32_t kWriteMs = 500;

struct Close {
    void operator()(tarvik::PortHandle* port) const { tarvik::ClosePort(port); }
    void operator()(tarvik::PortTransfer* transfer) const { tarvik::CloseTransfer(transfer); }
};
using Port = std::unique_ptr<tarvik::PortHandle, Close>;
using Transfer = std::unique_ptr<tarvik::PortTransfer, Close>;

// One conversation with the dongle.
class Conversation {
public:
    Conversation(tarvik::PortTransfer* receive, tarvik::PortTransfer* transmit,
                 const std::atomic<bool>& stop)
        : receive_(receive), transmit_(transmit), stop_(stop) {}

    bool Synchronizes() {
        return Ask(tarvik::kTypeSync, kSyncTime, kSyncPause, [this] { return stream_.synced(); });
    }
    bool LogsIn() {
        return Ask(tarvik::kTypeIden, kLoginTime, kLoginPause,
                   [this] { return login_ != nullptr; });
    }
    const tarvik::Packet& Login() const { return *login_; }

private:
    // Sends the packet again and again until `answered`. False: the time is over, or the port gone.
    template <typename Answered>
    bool Ask(std::uint32_t type, std::chrono::milliseconds time, std::chrono::milliseconds pause,
             Answered answered) {
        const tarvik::PacketHeaderWire packet = {type, tarvik::MIN_PKT_SIZE};
        for (const auto end = Clock::now() + time; Clock::now() < end && !stop_;) {
            tarvik::WritePort(transmit_, &packet, sizeof packet, kWriteMs);
            const auto next = Clock::now() + pause;
            while (!answered() && Clock::now() < next) {
                if (!Listen(next)) return false;
            }
            if (answered()) return true;
        }
        return false;
    }

    // Takes in what arrives first. False: the port is gone.
    bool Listen(Clock::time_point deadline) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const auto wait = std::max<std::int64_t>(left.count(), 0);
        std::uint32_t queued = 0;
        if (!tarvik::WaitForData(receive_, static_cast<std::int32_t>(wait)) ||
            !tarvik::QueuedBytes(receive_, &queued)) {
            return false;
        }
        if (queued == 0) return true;
        std::vector<std::uint8_t> bytes(queued);
        const tarvik::TransferOutcome outcome = tarvik::ReadPort(receive_, bytes.data(), queued);
        if (outcome.step != tarvik::TransferStep::kDone) return false;
        Take({bytes.data(), outcome.bytes});
        return true;
    }

    void Take(tarvik::ByteView input) {
        tarvik::PacketPtr packet;
        for (;;) {
            const tarvik::StreamEvent event = stream_.Next(&input, &packet);
            if (event == tarvik::StreamEvent::kNeedsMore) return;
            if (event != tarvik::StreamEvent::kPacket) continue;
            if (packet->type == tarvik::kTypeLogn) login_ = std::move(packet);
        }
    }

    tarvik::PortTransfer* const receive_;
    tarvik::PortTransfer* const transmit_;
    const std::atomic<bool>& stop_;
    tarvik::SerialStream stream_;
    tarvik::PacketPtr login_;
};

enum class LastWord : std::uint8_t { kNone, kSilence, kOther };

LastWord LastWordOnPort(const std::string& log, std::int32_t port_number) {
    const std::string number = std::to_string(port_number);
    const std::string silence =
        "[ConnectSerialPort] COM" + number + ": No response from device. Closing again.";
    const std::string attempt = "[ConnectSerialPort] Initialized CRITICAL_SECTION for Queues at ";
    const std::string departure =
        "[SerialConnect]   COM" + number + " got disconnected, set to unused";
    LastWord word = LastWord::kNone;
    std::ifstream file(PathOf(log), std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (line.find(silence) != line.npos) word = LastWord::kSilence;
        const bool is_attempt =
            line.find(attempt) != line.npos && line.find("(port " + number + ")") != line.npos;
        if (is_attempt || line.find(departure) != line.npos) word = LastWord::kOther;
    }
    return word;
}

// "'NAME' with mac A0:B1:C2:D3:E4:F5"
std::string NameOf(const tarvik::LoginRecord& login) { return tarvik::LoginText(login).text; }

std::string FirmwareOf(const tarvik::LoginRecord& login) {
    const auto* text =
        reinterpret_cast<const char*>(login.bytes) + offsetof(tarvik::LoginWire, firmware_version);
    return {text, std::find(text, text + sizeof tarvik::LoginWire::firmware_version, '\0')};
}

Finding NotOpenedFinding(const std::string& path, int error) {
    switch (WhyNotOpened(error)) {
        case OpenFailure::kInUse:
            return Found(Diagnosis::kPortInUse, {{"port", path}});
        case OpenFailure::kNoAccess:
            return Found(Diagnosis::kPortNoAccess,
                         {{"port", path}, {"command", "let this user read and write " + path}});
        case OpenFailure::kOther:
            break;
    }
    return Found(Diagnosis::kPortNotOpened,
                 {{"port", path}, {"error", std::system_category().message(error)}});
}

Finding LoginFinding(const std::string& path, const tarvik::LoginRecord& login,
                     const std::string& log) {
    if (!tarvik::IsSupportedModel(login.Model())) {
        return Found(
            Diagnosis::kPortModel,
            {{"port", path}, {"model", std::to_string(login.Model())}, {"dongle", NameOf(login)}});
    }
    if (!log.empty()) return Found(Diagnosis::kPortDongleLate, {{"port", path}, {"log", log}});
    return Found(
        Diagnosis::kPortDongle,
        {{"port", path}, {"dongle", NameOf(login)}, {"firmware", OnOneLine(FirmwareOf(login))}});
}

}  // namespace

DongleAnswer AskDongle(const char* path, const std::atomic<bool>& stop) {
    using Step = DongleAnswer::Step;
    const Port port(tarvik::OpenPort(path));
    if (!port) return {.step = Step::kNotOpened, .error = tarvik::OsLastError()};
    const Transfer receive(tarvik::CreateTransfer(port.get(), tarvik::TransferKind::kReceive));
    const Transfer transmit(tarvik::CreateTransfer(port.get(), tarvik::TransferKind::kTransmit));
    if (!receive || !transmit) return {.step = Step::kNotOpened, .error = tarvik::OsLastError()};
    Conversation conversation(receive.get(), transmit.get(), stop);
    if (!conversation.Synchronizes()) return {.step = Step::kSilent};
    if (!conversation.LogsIn()) return {.step = Step::kNoLogin};
    return {.step = Step::kLoggedIn, .login = tarvik::LoginFromPacket(conversation.Login())};
}

std::string LogOfSilence(std::int32_t port_number) {
    const std::vector<trace::LeftFile> files = trace::ListLeftFiles();
    for (auto file = files.rbegin(); file != files.rend(); ++file) {
        if (file->kind != trace::LeftKind::kLog) continue;
        const LastWord word = LastWordOnPort(file->path, port_number);
        if (word == LastWord::kSilence) return file->path;
        if (word == LastWord::kOther) return "";
    }
    return "";
}

Finding AnswerFinding(const std::string& path, const DongleAnswer& answer, const std::string& log) {
    switch (answer.step) {
        case DongleAnswer::Step::kNotOpened:
            return NotOpenedFinding(path, answer.error);
        case DongleAnswer::Step::kSilent:
            return Found(Diagnosis::kPortSilent, {{"port", path}});
        case DongleAnswer::Step::kNoLogin:
            return Found(Diagnosis::kPortNoLogin, {{"port", path}});
        case DongleAnswer::Step::kLoggedIn:
            break;
    }
    return LoginFinding(path, answer.login, log);
}

}  // namespace dpdu
