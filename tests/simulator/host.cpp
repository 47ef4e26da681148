#include "host.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <future>

#include "control/commands.h"
#include "control/control_server.h"
#include "dongle/simulator.h"
#include "process/event_loop.h"
#include "protocol/request.h"
#include "vehicle_file/json_reader.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix::test {

std::string ErrorOfVehicle(const std::string& json) {
    try {
        ReadVehicle(json, "car");
    } catch (const JsonError& error) {
        return error.what();
    }
    return "no error";
}

namespace {

std::vector<DongleSetup> ReadVehicles(const std::vector<std::string>& vehicles) {
    std::vector<DongleSetup> setups;
    for (const std::string& vehicle : vehicles)
        setups.push_back(ReadVehicle(vehicle, "test vehicle"));
    return setups;
}

void RunLoop(const std::vector<DongleSetup>& setups, std::promise<std::string>* address) {
    EventLoop loop;
    Simulator simulator(&loop, 1000);
    for (const DongleSetup& setup : setups)
        simulator.AddDongle(setup);
    Commands commands(&simulator);
    ControlServer control(
        &loop, &simulator.Log(), [&](std::string_view line) { return commands.Run(line); }, 0);
    for (std::size_t i = 0; i < simulator.Count(); ++i)
        simulator.Plug(i, Part::kAll);
    address->set_value(control.Address());
    loop.Run();
}

int ConnectTo(const std::string& address) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in target = {};
    target.sin_family = AF_INET;
    target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    target.sin_port =
        htons(static_cast<std::uint16_t>(std::stoul(address.substr(address.rfind(':') + 1))));
    EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&target), sizeof target), 0);
    return fd;
}

Bytes Request(std::uint32_t functional, std::uint32_t physical, std::uint32_t response,
              std::uint32_t timeout_ms, std::uint32_t id, std::size_t size) {
    Bytes payload;
    AppendU32(&payload, functional);
    AppendU32(&payload, physical);
    AppendU32(&payload, response);
    AppendU32(&payload, timeout_ms);
    AppendU16(&payload, static_cast<std::uint16_t>(size));
    AppendU16(&payload, 0);
    AppendU32(&payload, id);
    return payload;
}

}  // namespace

std::string CarJson(const std::string& engine, const std::string& dongle) {
    return R"({"dongle": {"name": "Test dongle", "mac": "02:00:00:00:00:07", "firmware": "9.8")" +
           (dongle.empty() ? "" : ", " + dongle) + R"(},
        "control_units": [
            {"name": "engine", "request": "7E0", "response": "7E8", "functional": ["7DF"],
             "data": {"F190": "VIN-OF-THE-ENGINE"})" +
           (engine.empty() ? "" : ", " + engine) + R"(},
            {"name": "abs", "request": "713", "response": "77D", "functional": ["7DF"],
             "data": {"F190": "VIN-OF-THE-ABS"}}]})";
}

RunningSimulator::RunningSimulator(const std::vector<std::string>& vehicles)
    : RunningSimulator(ReadVehicles(vehicles)) {}

RunningSimulator::RunningSimulator(std::vector<DongleSetup> setups) {
    std::promise<std::string> address;
    std::future<std::string> ready = address.get_future();
    thread_ = std::thread([setups = std::move(setups), address = std::move(address)]() mutable {
        RunLoop(setups, &address);
    });
    connection_ = ConnectTo(ready.get());
}

RunningSimulator::~RunningSimulator() {
    Command("quit");
    thread_.join();
    ::close(connection_);
}

std::string RunningSimulator::ReadLine() {
    std::size_t end = 0;
    while ((end = received_.find('\n')) == std::string::npos) {
        pollfd ready = {.fd = connection_, .events = POLLIN, .revents = 0};
        char bytes[4096];
        ssize_t size = 0;
        if (::poll(&ready, 1, 2 * kPatienceMs) == 1) {
            size = ::read(connection_, bytes, sizeof bytes);
        }
        if (size <= 0) return "no answer";
        received_.append(bytes, static_cast<std::size_t>(size));
    }
    std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return line;
}

std::string RunningSimulator::Command(const std::string& line) {
    const std::string text = line + "\n";
    EXPECT_EQ(::write(connection_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    return ReadLine();
}

nlohmann::json RunningSimulator::State(std::size_t dongle) {
    return nlohmann::json::parse(Command("@" + std::to_string(dongle) + " stats").substr(3)).at(0);
}

std::string RunningSimulator::PortPath(std::size_t dongle) { return State(dongle).at("pty"); }

std::uint64_t RunningSimulator::Violations() {
    return std::stoull(Command("violations").substr(3));
}

std::string RunningSimulator::LastViolation() {
    const std::string answer = Command("violations").substr(3);
    const std::size_t blank = answer.find(' ');
    return blank == std::string::npos ? "" : answer.substr(blank + 1);
}

HostPort::HostPort(const std::string& path)
    : file_(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}

void HostPort::Close() {
    if (file_ >= 0) ::close(file_);
    file_ = -1;
}

bool HostPort::Send(ByteSpan bytes) {
    while (!bytes.empty()) {
        pollfd ready = {.fd = file_, .events = POLLOUT, .revents = 0};
        if (::poll(&ready, 1, kPatienceMs) != 1) return false;
        const ssize_t size = ::write(file_, bytes.data(), bytes.size());
        if (size <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(size));
    }
    return true;
}

bool HostPort::Fill(std::size_t count, int limit_ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
    while (received_.size() < count) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd ready = {.fd = file_, .events = POLLIN, .revents = 0};
        const int wait_ms = static_cast<int>(std::max<std::int64_t>(0, left.count()));
        if (::poll(&ready, 1, wait_ms) != 1) return false;
        std::uint8_t bytes[4096];
        const ssize_t size = ::read(file_, bytes, sizeof bytes);
        if (size <= 0) return false;
        AppendBytes(&received_, ByteSpan(bytes, static_cast<std::size_t>(size)));
    }
    return true;
}

Bytes HostPort::ReadBytes(std::size_t count, int limit_ms) {
    Fill(count, limit_ms);
    const auto end =
        received_.begin() + static_cast<std::ptrdiff_t>(std::min(count, received_.size()));
    Bytes bytes(received_.begin(), end);
    received_.erase(received_.begin(), end);
    return bytes;
}

std::optional<Bytes> HostPort::Read(int limit_ms) {
    if (!Fill(kHeaderSize, limit_ms)) return std::nullopt;
    const std::uint32_t length = PacketLength(received_);
    if (length < kHeaderSize || length > kMaxPacketSize || !Fill(length, limit_ms)) {
        return std::nullopt;
    }
    return ReadBytes(length, limit_ms);
}

bool HostPort::Sync() { return Send(test::Sync()) && Read() == test::Sync(); }

bool HostPort::IsAtEnd(int limit_ms) {
    pollfd ready = {.fd = file_, .events = POLLIN, .revents = 0};
    std::uint8_t byte = 0;
    return ::poll(&ready, 1, limit_ms) == 1 && ::read(file_, &byte, 1) <= 0;
}

Bytes Sync() { return MakePacket(type::kSync, {}); }

Bytes Identify() { return MakePacket(type::kIden, {}); }

Bytes SingleRequest(std::uint32_t id, const Bytes& data, std::uint32_t request_id,
                    std::uint32_t response_id, std::uint32_t timeout_ms) {
    Bytes payload = Request(request_id, request_id, response_id, timeout_ms, id, data.size());
    AppendBytes(&payload, data);
    return MakePacket(type::kCreq, payload);
}

Bytes MultiRequest(std::uint32_t id, const Bytes& data,
                   const std::vector<std::pair<std::uint32_t, std::uint32_t>>& entries,
                   std::uint32_t timeout_ms) {
    Bytes payload = Request(0x7DF, kMultiRequestMark, static_cast<std::uint32_t>(entries.size()),
                            timeout_ms, id, data.size());
    for (const auto& [request_id, response_id] : entries) {
        AppendU32(&payload, request_id);
        AppendU32(&payload, response_id);
    }
    AppendBytes(&payload, data);
    while (payload.size() % 8 != 0)
        payload.push_back(0);
    return MakePacket(type::kCreq, payload);
}

std::optional<SingleResponse> AsSingle(const std::optional<Bytes>& packet) {
    if (!packet || packet->size() < 20 || PacketType(*packet) != type::kCres) return std::nullopt;
    const std::uint32_t wait_time = LoadU32(packet->data() + 8);
    if (wait_time == kMultiResponseMark) return std::nullopt;
    if (LoadU32(packet->data() + 12) != packet->size() - 20) return std::nullopt;
    return SingleResponse{LoadU32(packet->data() + 16), wait_time,
                          Bytes(packet->begin() + 20, packet->end())};
}

}  // namespace brennix::test
