// The host's side of the tests: a simulator in this process, its port and its control channel.

#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "dongle/dongle.h"
#include "protocol/wire.h"

namespace brennix::test {

// Patience for something that must happen.
inline constexpr int kPatienceMs = 10'000;

// A vehicle with the control units "engine" (7E0 to 7E8) and "abs" (713 to 77D), both on 7DF.
// `engine` and `dongle`: further keys for them, as JSON without the braces.
std::string CarJson(const std::string& engine = "", const std::string& dongle = "");

// Why this text is no valid vehicle file "car"; "no error" if it is one.
std::string ErrorOfVehicle(const std::string& json);

// Runs the simulator on its own thread until the end of the scope.
class RunningSimulator {
public:
    explicit RunningSimulator(const std::vector<std::string>& vehicles = {CarJson()});
    explicit RunningSimulator(std::vector<DongleSetup> setups);
    ~RunningSimulator();
    RunningSimulator(const RunningSimulator&) = delete;
    RunningSimulator& operator=(const RunningSimulator&) = delete;

    std::string PortPath(std::size_t dongle = 0);
    // The answer line.
    std::string Command(const std::string& line);
    std::uint64_t Violations();
    std::string LastViolation();
    nlohmann::json State(std::size_t dongle = 0);

private:
    std::string ReadLine();

    std::thread thread_;
    int connection_ = -1;
    std::string received_;
};

// Opens the port and exchanges packets.
class HostPort {
public:
    explicit HostPort(const std::string& path);
    ~HostPort() { Close(); }
    HostPort(const HostPort&) = delete;
    HostPort& operator=(const HostPort&) = delete;

    bool IsOpen() const { return file_ >= 0; }
    void Close();
    bool Send(ByteSpan bytes);
    bool Sync();  // sends SYNC and reads its echo
    // The next packet; empty if none comes in time or the port ends.
    std::optional<Bytes> Read(int limit_ms = kPatienceMs);
    // The next `count` bytes, packets or not; fewer if no more come.
    Bytes ReadBytes(std::size_t count, int limit_ms = kPatienceMs);
    bool IsAtEnd(int limit_ms = kPatienceMs);

private:
    bool Fill(std::size_t count, int limit_ms);

    int file_;
    Bytes received_;
};

inline const Bytes kReadVin = {0x22, 0xF1, 0x90};

Bytes Sync();
Bytes Identify();
Bytes SingleRequest(std::uint32_t id, const Bytes& data, std::uint32_t request_id = 0x7E0,
                    std::uint32_t response_id = 0x7E8, std::uint32_t timeout_ms = 1000);
Bytes MultiRequest(std::uint32_t id, const Bytes& data,
                   const std::vector<std::pair<std::uint32_t, std::uint32_t>>& entries,
                   std::uint32_t timeout_ms = 200);

// Fields of a single-form CRES.
struct SingleResponse {
    std::uint32_t id;
    std::uint32_t wait_time;
    Bytes data;
};
// Empty if the packet is not a single-form CRES.
std::optional<SingleResponse> AsSingle(const std::optional<Bytes>& packet);

}  // namespace brennix::test
