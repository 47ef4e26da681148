// A packet's round trip to a relay, through the cloud transport's queues, threads, sealing and
// carrier. The relay, a thread of this program, opens every packet and sends it back sealed. The
// floor has the same relay, the same hand-offs between threads and the same sealing functions.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "channel.h"
#include "failure.h"
#include "link/fragmentation.h"
#include "placement.h"
#include "report.h"
#include "rounds.h"
#include "sealed_stream.h"
#include "support/config.h"
#include "transport/cloud/cloud_carrier.h"
#include "transport/cloud/cloud_connection.h"
#include "transport/cloud/cloud_state.h"
#include "transport/transport.h"

namespace tarvik::bench {
namespace {

constexpr std::uint32_t kShortPacket = 64;
constexpr std::uint32_t kLongPacket =
    kCloudMtu;                                // the longest packet sent unfragmented: 4 KiB sealed
constexpr std::uint32_t kFragmentMtu = 1024;  // the same packet then takes five fragments
constexpr std::uint32_t kType = TypeCode("REPL");
constexpr std::int32_t kAnswerMs = 10'000;

// Accepts connections and sends back what it receives.
class EchoRelay {
public:
    EchoRelay(bool web_socket, int core) : web_socket_(web_socket), core_(core) {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        socklen_t size = sizeof place;
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&place), size) != 0 ||
            ::listen(listener_, 4) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&place), &size) != 0) {
            Fail("listen");
        }
        address_ = "127.0.0.1:" + std::to_string(::ntohs(place.sin_port));
        accepting_ = std::thread([this] { Accept(); });
    }
    ~EchoRelay() {
        ::shutdown(listener_, SHUT_RDWR);
        accepting_.join();
        for (std::thread& thread : echoing_)
            thread.join();
        ::close(listener_);
    }
    EchoRelay(const EchoRelay&) = delete;
    EchoRelay& operator=(const EchoRelay&) = delete;

    const std::string& Address() const { return address_; }

private:
    void Accept() {
        for (;;) {
            const int file = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (file < 0) return;
            const int yes = 1;
            ::setsockopt(file, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
            echoing_.emplace_back([this, file] {
                PlaceThisThread(core_);
                Echo(file);
            });
        }
    }
    void Echo(int file) const {
        PacketSocket socket(file);
        if (web_socket_ && !socket.AcceptWebSocket()) return;
        Sealer sealer(Side::kRelay);
        Bytes packet;
        Bytes plain;
        while (socket.Receive(&packet)) {
            sealer.Open(packet, &plain);
            sealer.Seal({plain.data(), plain.size()}, &packet);
            if (!socket.Send(packet)) return;
        }
    }

    const bool web_socket_;
    const int core_;
    int listener_ = -1;
    std::string address_;
    std::thread accepting_;
    std::vector<std::thread> echoing_;
};

// The requesting thread passes a packet to the transmitting thread, which seals and sends it; the
// receiving thread opens the answer and passes it to the requesting thread. As in the library, only
// the receiving thread uses a WebSocket: it also sends, while the transmitting thread waits.
class Floor {
public:
    Floor(const EchoRelay& relay, bool web_socket, int core)
        : sealer_(Side::kDevice),
          hand_over_(web_socket ? ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC) : -1) {
        socket_.Connect(relay.Address());
        if (web_socket) socket_.AskForWebSocket();
        transmitting_ = std::thread([this, core] {
            PlaceThisThread(core);
            Transmit();
        });
        receiving_ = std::thread([this, core] {
            PlaceThisThread(core);
            Receive();
        });
    }
    ~Floor() {
        outgoing_.Close();
        transmitting_.join();
        socket_.Shutdown();
        receiving_.join();
        if (HandsOver()) ::close(hand_over_);
    }
    Floor(const Floor&) = delete;
    Floor& operator=(const Floor&) = delete;

    bool Ask(std::uint32_t size) {
        request_.assign(size, 0);
        StoreU32(request_.data(), kType);
        StoreU32(request_.data() + 4, size);
        outgoing_.Put(&token_);
        return arrived_.Take() != nullptr && answer_ == request_;
    }

private:
    bool HandsOver() const { return hand_over_ >= 0; }
    void Send() {
        if (!socket_.Send(sealed_)) Fail("send");
    }
    void Transmit() {
        while (outgoing_.Take() != nullptr) {
            sealer_.Seal({request_.data(), request_.size()}, &sealed_);
            if (HandsOver()) {
                ::eventfd_write(hand_over_, 1);
                sent_.Take();
            } else {
                Send();
            }
        }
    }
    void SendUntilSomethingComes() {
        while (socket_.AwaitEvent(hand_over_)) {
            Send();
            sent_.Put(&sent_token_);
        }
    }
    void Receive() {
        Bytes sealed;
        for (;;) {
            if (HandsOver()) SendUntilSomethingComes();
            if (!socket_.Receive(&sealed)) break;
            sealer_.Open(sealed, &answer_);
            arrived_.Put(&token_);
        }
        arrived_.Close();
    }

    PacketSocket socket_;
    Sealer sealer_;
    const int hand_over_;  // tells the receiving thread to send the packet; below 0: unused
    Block token_{};        // passed around; the bytes are in one of the next two
    Block sent_token_{};
    Bytes request_;
    Bytes sealed_;
    Bytes answer_;
    Channel outgoing_;
    Channel sent_;
    Channel arrived_;
    std::thread transmitting_;
    std::thread receiving_;
};

// The transport with a connection after its handshake: both sides have the keys.
class CloudLink {
public:
    CloudLink(const EchoRelay& relay, bool web_socket, int core)
        : carrier_(web_socket ? kWebSocketCarrier : kNativeCarrier) {
        config.useWebsocket = web_socket;
        std::snprintf(config.serverAddress, sizeof config.serverAddress, "%s",
                      relay.Address().c_str());
        std::snprintf(config.websocketAddress, sizeof config.websocketAddress, "ws://%s/",
                      relay.Address().c_str());
        kCloudTransport.Init();
        cloud->connState = ConnState::kConnecting;
        if (!carrier_.Connect()) Fail("carrier");
        InstallBenchSession();
        PlaceThreadsNamed(web_socket ? "Tarvik WebSocke" : "Tarvik Cloud", 2, core);
    }
    ~CloudLink() {
        cloud->connState = ConnState::kDisconnecting;
        AbortLink();
        for (OsThread** thread : {&cloud->receive_thread, &cloud->transmit_thread}) {
            OsThreadJoin(*thread, -1);
            OsThreadClose(*thread);
            *thread = nullptr;
        }
        carrier_.Disconnect();
        cloud->connState = ConnState::kIdle;
        kCloudTransport.Deinit();
    }
    CloudLink(const CloudLink&) = delete;
    CloudLink& operator=(const CloudLink&) = delete;

    bool Ask(std::uint32_t size, std::uint32_t mtu) {
        cloud->queues.mtu = mtu;
        PacketPtr request = MakePacket(kType, size);
        if (!FragSendPacket(&cloud->queues, request)) return false;
        const PacketPtr answer = WaitForPacket(&cloud->queues, kType, kAnswerMs, kNoTag);
        return answer != nullptr && answer->length == size;
    }

private:
    const CloudCarrier& carrier_;
};

struct Variant {
    const char* name;
    const char* text;
    bool web_socket;
    Placement placement;
};

const Variant kVariants[] = {
    {"tcp/two_cores", "cloud over TCP", false, kTwoCores},
    {"tcp/one_core", "cloud over TCP", false, kOneCore},
    {"websocket/two_cores", "cloud over a WebSocket", true, kTwoCores},
    {"websocket/one_core", "cloud over a WebSocket", true, kOneCore},
};

constexpr Goals kShortGoals = {.time = 1.5};
constexpr Goals kLongGoals = {.time = 1.25};
constexpr double kFragmentGoal = 5.5;  // relative to the unfragmented packet

void AddRows(const Variant& variant, const Rounds& rounds) {
    const std::string where = std::string(variant.text) + ", ";
    const std::string suffix = std::string(", sealed, ") + variant.placement.text;
    AddRoundTripRow(where + "64 bytes" + suffix, rounds, 1, 0, kShortGoals);
    AddRoundTripRow(where + "4 KiB" + suffix, rounds, 3, 2, kLongGoals);
    const double times = rounds.Ratio(4, 3, &Figures::p50_us);
    AddFindingRow(where + "4 KiB in five fragments against whole" + suffix,
                  Text("%.2f times the time", times), "≤ " + Text("%.2f", kFragmentGoal),
                  times <= kFragmentGoal);
}

void RoundTrip(benchmark::State& state, const Variant& variant) {
    const int core = variant.placement.asking;
    EchoRelay relay(variant.web_socket, variant.placement.answering);
    {
        Floor floor(relay, variant.web_socket, core);
        CloudLink cloud_link(relay, variant.web_socket, core);
        const auto bare = [&floor](std::uint32_t size) {
            return [&floor, size](std::size_t) { return floor.Ask(size); };
        };
        const auto own = [&cloud_link](std::uint32_t size, std::uint32_t mtu) {
            return [&cloud_link, size, mtu](std::size_t) { return cloud_link.Ask(size, mtu); };
        };
        Rounds rounds({{"floor_64", 1, 300, core, bare(kShortPacket)},
                       {"cloud_64", 1, 300, core, own(kShortPacket, kCloudMtu)},
                       {"floor_4k", 1, 150, core, bare(kLongPacket)},
                       {"cloud_4k", 1, 150, core, own(kLongPacket, kCloudMtu)},
                       {"cloud_4k_fragments", 1, 100, core, own(kLongPacket, kFragmentMtu)}});
        RunRounds(state, &rounds);
        AddRows(variant, rounds);
    }
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    for (const Variant& variant : kVariants) {
        benchmark::RegisterBenchmark(
            (std::string("Cloud/") + variant.name).c_str(),
            [&variant](benchmark::State& state) { RoundTrip(state, variant); })
            ->Iterations(25)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    return RunBenchmarks(argc, argv);
}
