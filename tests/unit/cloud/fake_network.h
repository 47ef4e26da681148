#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "link/packet.h"
#include "transport/cloud/websocket_client.h"

// What is behind tcp_socket.h and websocket_client.h in these tests: a relay in this process.
namespace tarvik::test {

using Bytes = std::vector<std::uint8_t>;

Bytes WirePacket(std::uint32_t type, const Bytes& payload = {});

enum class Reception : std::uint8_t {
    kAccept,
    kRefuse,
    kNeverAnswer,  // until it is aborted
};

class FakeNetwork {
public:
    static constexpr std::uint32_t kAlways = 0xFFFFFFFF;

    static FakeNetwork& Get();

    // For the next test.
    void Reset();

    // --- the relay's side ---
    void Receive(Reception reception) { reception_ = reception; }
    void RefuseNext(std::uint32_t attempts);  // and only those
    void FailResolving(int error) { resolve_error_ = error; }
    void HoldResolving(bool hold) { resolving_held_ = hold; }
    std::uint32_t Resolving() const { return resolving_; }  // look-ups that are under way
    // So many times: the connection thread retries at once, so no test could end this in time.
    void FailWebSocket(WebSocketStep step, std::uint32_t error, std::uint32_t times = kAlways);
    // The next packet's, once.
    void FailSending(std::uint32_t error = kErrorConnectionBroken);
    void Deliver(const Bytes& bytes, MessageKind kind = MessageKind::kBinary);
    void FailReceiving(std::uint32_t error) { SetReceiveError(error); }
    // Threads stay in the library's calls, even if these are aborted. A reader stays after it has
    // read.
    void HoldSending(bool hold) { Hold(&sending_held_, hold); }
    void HoldReading(bool hold) { Hold(&reading_held_, hold); }
    bool EventuallyHolds();
    void HangUp();  // what was delivered before can still be read

    std::vector<Bytes> Sent();
    std::size_t SentCount(std::uint32_t type);
    bool EventuallySends(std::uint32_t type, std::size_t count = 1);
    std::uint32_t Connections() const { return connections_; }
    std::uint32_t Peeks() const { return peeks_; }
    std::uint32_t NetworkUses() const { return network_uses_; }
    std::uint32_t OpenLinks() const { return open_links_; }
    std::string Target();  // of the last attempt: "host:port", with the endpoint of a WebSocket

    // --- the library's side ---
    int Resolve(const std::string& target);
    bool Connect(const std::atomic<bool>& abort);
    void Abort();
    void Close();
    bool WaitForBytes(std::int32_t timeout_ms);  // false: time ran out
    bool HasEnded();
    bool IsAborted() const { return aborted_; }
    int Peek(void* data, std::uint32_t size);
    int Read(void* data, std::uint32_t size);
    std::uint32_t ReadMessage(void* data, std::uint32_t size, std::uint32_t* bytes,
                              MessageKind* kind);
    std::uint32_t Send(const void* data, std::uint32_t size);
    std::uint32_t Step(WebSocketStep step);
    void SetTarget(const std::string& target);
    void UseNetwork(int change) { network_uses_ += static_cast<std::uint32_t>(change); }

private:
    struct Message {
        MessageKind kind;
        Bytes bytes;
    };
    void SetReceiveError(std::uint32_t error);
    void Hold(bool* held, bool hold);
    void StayWhile(std::unique_lock<std::mutex>& hold, const bool& held);

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<Message> incoming_;  // guarded by lock_, as all below that is not atomic
    std::vector<Bytes> sent_;
    std::string target_;
    bool ended_ = false;
    bool sending_held_ = false;
    bool reading_held_ = false;
    std::uint32_t holding_ = 0;  // threads
    std::uint32_t receive_error_ = 0;
    std::uint32_t send_error_ = 0;
    std::uint32_t refusals_ = 0;
    std::optional<WebSocketStep> failing_step_;
    std::uint32_t step_error_ = 0;
    std::uint32_t step_failures_ = 0;
    std::atomic<bool> aborted_{false};
    std::atomic<Reception> reception_{Reception::kAccept};
    std::atomic<int> resolve_error_{0};
    std::atomic<bool> resolving_held_{false};
    std::atomic<std::uint32_t> resolving_{0};
    std::atomic<std::uint32_t> connections_{0}, peeks_{0}, network_uses_{0}, open_links_{0};
};

}  // namespace tarvik::test
