// Bursts of raw CAN frames in both directions, through the exported functions of the shared
// library. Their floor reads and writes the same packets directly at the port.

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "failure.h"
#include "pdu_session.h"
#include "placement.h"
#include "report.h"
#include "rounds.h"
#include "scratch_folder.h"
#include "simulated_dongle.h"
#include "simulator_control.h"

namespace tarvik::bench {
namespace {

constexpr std::size_t kBurst = 1000;  // frames
constexpr std::size_t kFrameBytes = 24;
constexpr std::uint8_t kCanIdLow = 0x55;  // of identifier 555, which no control unit uses
constexpr std::uint8_t kCanIdHigh = 0x05;
constexpr double kMostTimesTheFloor = 2.0;
constexpr std::chrono::seconds kPatience{30};

// Waits until the simulator has received this many more frames.
void AwaitFrames(int dongle, std::size_t count) {
    CommandSimulator("@" + std::to_string(dongle) + " wait " + std::to_string(count) +
                     " 30000 in RAWC");
}

std::string Burst(int dongle) {
    return "@" + std::to_string(dongle) + " raw burst " + std::to_string(kBurst) + " 123";
}

// The port of the dongle that the library does not use.
class BarePort {
public:
    BarePort() : port_(::open(HiddenPort().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (port_ < 0) Fail("port");
        termios settings{};
        ::tcgetattr(port_, &settings);
        ::cfmakeraw(&settings);
        ::tcsetattr(port_, TCSANOW, &settings);
        static constexpr std::uint8_t kSync[] = {'C', 'N', 'Y', 'S', 8, 0, 0, 0};
        Write(kSync, sizeof kSync);
        Read(sizeof kSync);
    }
    ~BarePort() { ::close(port_); }
    BarePort(const BarePort&) = delete;
    BarePort& operator=(const BarePort&) = delete;

    // Flags 1: reception on; 0: a frame of eight bytes.
    void Send(std::uint8_t flags) {
        std::uint8_t packet[kFrameBytes] = {'C', 'W', 'A', 'R', kFrameBytes};
        if (flags == 0) packet[8] = kCanIdLow, packet[9] = kCanIdHigh, packet[12] = 8;
        packet[14] = flags;
        Write(packet, sizeof packet);
    }
    void Read(std::size_t count) {
        std::uint8_t bytes[4096];
        while (count > 0) {
            const ssize_t got = ::read(port_, bytes, std::min(count, sizeof bytes));
            if (got <= 0) Fail("read");
            count -= static_cast<std::size_t>(got);
        }
    }

private:
    void Write(const std::uint8_t* bytes, std::size_t count) {
        if (::write(port_, bytes, count) != static_cast<ssize_t>(count)) Fail("write");
    }

    int port_;
};

// Bursts of frames, with and without the library. Frames are counted from the beginning of the
// recording.
class RawFrames {
public:
    explicit RawFrames(PduSession* session) : session_(session) {
        bare_.Send(1);
        session_->ListenRaw(0);
        AwaitFrames(0, 1);
        AwaitFrames(1, 1);
        CommandSimulator("record clear");
    }

    bool SendBare() {
        for (std::size_t i = 0; i < kBurst; ++i)
            bare_.Send(0);
        AwaitFrames(1, sent_bare_ += kBurst);
        return true;
    }
    bool Send() {
        for (std::size_t i = 0; i < kBurst; ++i)
            session_->SendRaw(0, (std::uint32_t{kCanIdHigh} << 8) | kCanIdLow);
        AwaitFrames(0, sent_ += kBurst);
        return true;
    }
    bool ReceiveBare() {
        CommandSimulator(Burst(1));
        bare_.Read(kBurst * kFrameBytes);
        return true;
    }
    bool Receive() {
        CommandSimulator(Burst(0));
        return session_->AwaitRaw(0, kBurst);
    }

private:
    PduSession* session_;
    BarePort bare_;
    std::size_t sent_ = 0;
    std::size_t sent_bare_ = 0;
};

struct Variant {
    const char* name;
    bool diagnostics;  // debug log and trace
    std::size_t bursts;
    int rounds;
};

// The order matters: an open log stays open for the process.
const Variant kVariants[] = {{"off", false, 4, 15}, {"on", true, 2, 10}};

void AddRow(const Variant& variant, const Rounds& rounds, std::size_t contender,
            const std::string& direction) {
    const auto per_second = [&](std::size_t of) {
        return rounds.Medians(of).per_second * static_cast<double>(kBurst);
    };
    const double times = rounds.Ratio(contender, contender - 1, &Figures::each_us);
    AddFindingRow(
        "raw frames " + direction + ", log and trace " + (variant.diagnostics ? "on" : "off"),
        Text("%.0f/s", per_second(contender)) + ", " +
            Text("%.0f/s at the bare port", per_second(contender - 1)) + ": " +
            Text("%.2f times the time", times),
        variant.diagnostics ? "none" : Text("≤ %.2f times", kMostTimesTheFloor),
        variant.diagnostics || times <= kMostTimesTheFloor);
}

void Compare(benchmark::State& state, const Variant& variant) {
    const ScratchFolder folder;
    folder.WriteConfig(variant.diagnostics);
    PduSession session(LoadedPduFunctions(), 0);
    session.OpenRawLink();
    RawFrames frames(&session);
    const auto contender = [&](const char* name, bool (RawFrames::*burst)()) {
        return Contender{name, 1, variant.bursts, kAnyCore,
                         [&frames, burst](std::size_t) { return (frames.*burst)(); }};
    };
    Rounds rounds({contender("floor_sent", &RawFrames::SendBare),
                   contender("sent", &RawFrames::Send),
                   contender("floor_received", &RawFrames::ReceiveBare),
                   contender("received", &RawFrames::Receive)});
    RunRounds(state, &rounds);
    AddRow(variant, rounds, 1, "sent");
    AddRow(variant, rounds, 3, "received");
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    RunUnderSimulator(argv, "fleet");  // whose bus is silent
    for (const Variant& variant : kVariants) {
        benchmark::RegisterBenchmark(
            (std::string("Raw/") + variant.name).c_str(),
            [&variant](benchmark::State& state) { Compare(state, variant); })
            ->Iterations(variant.rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    return RunBenchmarks(argc, argv);
}
